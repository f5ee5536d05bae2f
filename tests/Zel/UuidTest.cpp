#include <Zel/ArgumentException.h>
#include <Zel/Uuid.h>
#include <Zel/Variant.h>
#include <Zel/VariantInvalidOperationException.h>
#include <gtest/gtest.h>
#include <thread>
#include <unordered_set>
#include <vector>

namespace {

TEST(Uuid, GeneratorsSetVersionAndVariantBits) {
    for (int i = 0; i < 1000; ++i) {
        const auto v4 = Zel::Uuid::random();
        const auto v7 = Zel::Uuid::timeOrdered();
        EXPECT_EQ(v4.version(), 4);
        EXPECT_EQ(v7.version(), 7);
        EXPECT_EQ(v4.bytes()[8] & 0xC0, 0x80);
        EXPECT_EQ(v7.bytes()[8] & 0xC0, 0x80);
        EXPECT_EQ(v4.toString()[14], '4');
        EXPECT_EQ(v7.toString()[14], '7');
    }
}

TEST(Uuid, TimeOrderedIdsIncreaseStrictlyAcrossThreads) {
    // Far more ids than milliseconds pass, so most share a millisecond with their neighbours and
    // some overflow the 12-bit counter.
    constexpr int perThread = 50000;
    std::vector<std::vector<Zel::Uuid>> made(4);
    std::vector<std::thread> threads;
    for (auto& ids : made) {
        threads.emplace_back([&ids] {
            ids.reserve(perThread);
            for (int i = 0; i < perThread; ++i)
                ids.push_back(Zel::Uuid::timeOrdered());
        });
    }
    for (auto& thread : threads)
        thread.join();

    std::unordered_set<Zel::Uuid> all;
    int sameMillisecond = 0;
    for (const auto& ids : made) {
        for (std::size_t i = 1; i < ids.size(); ++i) {
            ASSERT_LT(ids[i - 1], ids[i]) << ids[i - 1].toString() << " " << ids[i].toString();
            sameMillisecond += ids[i - 1].unixMilliseconds() == ids[i].unixMilliseconds();
        }
        all.insert(ids.begin(), ids.end());
    }
    EXPECT_EQ(all.size(), 4u * perThread);
    EXPECT_GT(sameMillisecond, 0);

    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
    // Borrowed milliseconds may run ahead of the clock by a little, never by much.
    EXPECT_NEAR(static_cast<double>(made[0].back().unixMilliseconds()), static_cast<double>(now), 60000.0);
}

TEST(Uuid, ParseTable) {
    const std::string canonical = "0190a3b2-7c4d-7e8f-9a0b-1c2d3e4f5a6b";
    struct Row {
        const char* text;
        bool valid;
    };
    const Row rows[] = {
        {"0190a3b2-7c4d-7e8f-9a0b-1c2d3e4f5a6b", true},
        {"0190A3B2-7C4D-7E8F-9A0B-1C2D3E4F5A6B", true},
        {"{0190a3b2-7c4d-7e8f-9a0b-1c2d3e4f5a6b}", true},
        {"urn:uuid:0190a3b2-7c4d-7e8f-9a0b-1c2d3e4f5a6b", true},
        {"0190a3b27c4d7e8f9a0b1c2d3e4f5a6b", true},
        {"", false},
        {"0190a3b2-7c4d-7e8f-9a0b-1c2d3e4f5a6", false},
        {"0190a3b2-7c4d-7e8f-9a0b-1c2d3e4f5a6bb", false},
        {"0190a3b27-c4d-7e8f-9a0b-1c2d3e4f5a6b", false},
        {"0190a3b2-7c4d-7e8f-9a0b-1c2d3e4f5a6g", false},
        {"0190a3b2_7c4d_7e8f_9a0b_1c2d3e4f5a6b", false},
        {"{0190a3b2-7c4d-7e8f-9a0b-1c2d3e4f5a6b", false},
        {"{0190a3b27c4d7e8f9a0b1c2d3e4f5a6b}", false},
        {" 0190a3b2-7c4d-7e8f-9a0b-1c2d3e4f5a6b", false},
        {"urn:uuid:", false},
        {"+190a3b2-7c4d-7e8f-9a0b-1c2d3e4f5a6b", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto parsed = Zel::Uuid::tryParse(row.text);
        ASSERT_EQ(parsed.has_value(), row.valid);
        if (row.valid) {
            EXPECT_EQ(parsed->toString(), canonical);
            EXPECT_EQ(Zel::Uuid::parse(row.text), *parsed);
        } else {
            try {
                Zel::Uuid::parse(row.text);
                ADD_FAILURE();
            } catch (const Zel::ArgumentException& error) {
                EXPECT_EQ(error.message(), std::string("Invalid UUID | text=") + row.text);
            }
        }
    }
    EXPECT_EQ(Zel::Uuid::parse("00000000-0000-0000-0000-000000000000"), Zel::Uuid());
    EXPECT_TRUE(Zel::Uuid().isNil());
}

TEST(Uuid, VariantRoundTripAndOrdering) {
    const auto id = Zel::Uuid::random();
    const Zel::Variant value = id.toVariant();
    ASSERT_TRUE(value.isString());
    EXPECT_EQ(static_cast<std::string>(value), id.toString());
    EXPECT_EQ(Zel::Uuid::fromVariant(value), id);
    EXPECT_TRUE(Zel::Uuid::fromVariant(Zel::Variant()).isNil());
    Zel::Variant number;
    number = 5;
    EXPECT_THROW(Zel::Uuid::fromVariant(number), Zel::VariantInvalidOperationException);

    EXPECT_LT(Zel::Uuid::parse("00000000-0000-0000-0000-0000000000ff"),
              Zel::Uuid::parse("00000000-0000-0000-0000-000000000100"));
    EXPECT_LT(Zel::Uuid::parse("7fffffff-ffff-ffff-ffff-ffffffffffff"),
              Zel::Uuid::parse("80000000-0000-0000-0000-000000000000"));
}

} // namespace
