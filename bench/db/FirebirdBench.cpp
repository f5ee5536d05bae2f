// Firebird's embedded engine in this process, forced writes off, on the table
//
//     item(id BIGINT PRIMARY KEY, name VARCHAR(64), qty INTEGER, price DOUBLE PRECISION, created TIMESTAMP)
//
//   Firebird/Insert/*  10,000 rows in one transaction per iteration, the table dropped and created
//                      again (untimed) before each. Zel: one Db::Command run through the
//                      connection's statement cache, its five parameters bound per row. Raw: the
//                      engine's object-oriented API by hand: prepare once, fill one message buffer
//                      per row, execute.
//   Firebird/Select/*  the 10,000 rows of a filled table, every column read: Zel as Variants, raw
//                      into int64, std::string, int, double and a decoded timestamp.
//
// Both sides run on attachments of their own to one database, with the same transaction
// parameters (read committed, wait). Time is the process's CPU time, which counts the engine's own
// threads and which the other load of a shared machine disturbs far less than wall clock. On a
// busy machine, interleave repetitions:
//
//     zel-bench-db --benchmark_filter=Firebird --benchmark_repetitions=5 \
//         --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true
#include "DbBench.h"

#include <Zel/Db/Command.h>
#include <Zel/Db/Connection.h>
#include <Zel/Db/Recordset.h>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <firebird/Interface.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace Fb = ::Firebird;

constexpr int rowCount = 10'000;
const char* const createItem = "CREATE TABLE item (id BIGINT PRIMARY KEY, name VARCHAR(64), qty INTEGER, "
                               "price DOUBLE PRECISION, created TIMESTAMP)";
const char* const insertItem = "INSERT INTO item (id, name, qty, price, created) VALUES (?, ?, ?, ?, ?)";
const char* const selectItems = "SELECT id, name, qty, price, created FROM item_read";
// Read committed, write, wait: what Zel's connection uses.
const unsigned char transactionParameters[] = {isc_tpb_version3, isc_tpb_write, isc_tpb_read_committed,
                                               isc_tpb_rec_version, isc_tpb_wait};

struct Row {
    std::int64_t id;
    std::string name;
    int qty;
    double price;
    Zel::DateTime created;
};

class Fixture {
public:
    Fixture() {
        const std::string lock = "/tmp/zel-firebird-lock-" + std::to_string(::getuid());
        ::setenv("FIREBIRD_LOCK", lock.c_str(), 0);
        std::string pattern = (std::filesystem::temp_directory_path() / "zel-bench-firebird-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        directory = pattern;
        path = (directory / "bench.fdb").string();
        zel = Zel::Db::Connection::create("Database=" + path + ";Create=1;ForcedWrites=0");

        for (int i = 0; i < rowCount; ++i)
            rows.push_back(
                Row{i + 1, "item number " + std::to_string(i), i % 100, i * 0.25,
                    Zel::DateTime(Zel::Date(2026, 1 + i % 12, 1 + i % 28), Zel::Time(i % 24, i % 60, 0))});
        zel->execute(createItem);
        zel->execute("CREATE TABLE item_read (id BIGINT PRIMARY KEY, name VARCHAR(64), qty INTEGER, "
                     "price DOUBLE PRECISION, created TIMESTAMP)");
        zel->begin();
        for (const Row& row : rows)
            zel->execute("INSERT INTO item_read VALUES (?, ?, ?, ?, ?)",
                         {row.id, row.name, row.qty, row.price, row.created});
        zel->commit();

        master = Fb::fb_get_master_interface();
        util = master->getUtilInterface();
        Fb::ThrowStatusWrapper status(master->getStatus());
        Fb::IXpbBuilder* dpb = util->getXpbBuilder(&status, Fb::IXpbBuilder::DPB, nullptr, 0);
        dpb->insertString(&status, isc_dpb_config, "Providers=Engine12");
        dpb->insertString(&status, isc_dpb_lc_ctype, "UTF8");
        Fb::IProvider* provider = master->getDispatcher();
        raw = provider->attachDatabase(&status, path.c_str(), dpb->getBufferLength(&status),
                                       dpb->getBuffer(&status));
        provider->release();
        dpb->dispose();
        status.dispose();
    }

    void tearDown() {
        if (raw != nullptr) {
            Fb::ThrowStatusWrapper status(master->getStatus());
            raw->detach(&status);
            status.dispose();
            raw = nullptr;
        }
        zel.reset();
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    void recreateItem() {
        zel->execute("DROP TABLE item");
        zel->execute(createItem);
    }

    std::filesystem::path directory;
    std::string path;
    std::unique_ptr<Zel::Db::Connection> zel;
    Fb::IMaster* master = nullptr;
    Fb::IUtil* util = nullptr;
    Fb::IAttachment* raw = nullptr;
    std::vector<Row> rows;
};

Fixture* fixture = nullptr;

void zelInsert(benchmark::State& state) {
    Zel::Db::Connection& connection = *fixture->zel;
    Zel::Db::Command insert(insertItem);
    for (auto _ : state) {
        state.PauseTiming();
        fixture->recreateItem();
        state.ResumeTiming();
        connection.begin();
        for (const Row& row : fixture->rows) {
            insert.clearParams().bind(row.id).bind(row.name).bind(row.qty).bind(row.price).bind(row.created);
            insert.execute(connection);
        }
        connection.commit();
    }
    state.SetItemsProcessed(state.iterations() * rowCount);
}

template <class T>
void store(unsigned char* message, unsigned offset, const T& value) {
    std::memcpy(message + offset, &value, sizeof value);
}

void rawInsert(benchmark::State& state) {
    Fb::IUtil* util = fixture->util;
    Fb::ThrowStatusWrapper status(fixture->master->getStatus());
    for (auto _ : state) {
        state.PauseTiming();
        fixture->recreateItem();
        state.ResumeTiming();
        Fb::ITransaction* transaction =
            fixture->raw->startTransaction(&status, sizeof transactionParameters, transactionParameters);
        Fb::IStatement* statement =
            fixture->raw->prepare(&status, transaction, 0, insertItem, SQL_DIALECT_V6, 0);
        Fb::IMessageMetadata* input = statement->getInputMetadata(&status);
        std::vector<std::uint64_t> buffer((input->getMessageLength(&status) + 7) / 8);
        auto* message = reinterpret_cast<unsigned char*>(buffer.data());
        unsigned offsets[5], nulls[5];
        for (unsigned i = 0; i < 5; ++i) {
            offsets[i] = input->getOffset(&status, i);
            nulls[i] = input->getNullOffset(&status, i);
            store(message, nulls[i], std::int16_t{0});
        }
        for (const Row& row : fixture->rows) {
            store(message, offsets[0], row.id);
            const auto length = static_cast<std::uint16_t>(row.name.size());
            store(message, offsets[1], length);
            std::memcpy(message + offsets[1] + 2, row.name.data(), length);
            store(message, offsets[2], static_cast<std::int32_t>(row.qty));
            store(message, offsets[3], row.price);
            ISC_TIMESTAMP created;
            created.timestamp_date =
                util->encodeDate(row.created.year(), row.created.month(), row.created.day());
            created.timestamp_time =
                util->encodeTime(row.created.hour(), row.created.minute(), row.created.second(), 0);
            store(message, offsets[4], created);
            statement->execute(&status, transaction, input, message, nullptr, nullptr);
        }
        input->release();
        statement->free(&status);
        transaction->commit(&status);
    }
    status.dispose();
    state.SetItemsProcessed(state.iterations() * rowCount);
}

void zelSelect(benchmark::State& state) {
    Zel::Db::Connection& connection = *fixture->zel;
    for (auto _ : state) {
        int seen = 0;
        for (auto rows = connection.query(selectItems); !rows->eof(); rows->next(), ++seen)
            for (std::size_t column = 0; column < 5; ++column)
                benchmark::DoNotOptimize(rows->value(column));
        if (seen != rowCount) state.SkipWithError("wrong row count");
    }
    state.SetItemsProcessed(state.iterations() * rowCount);
}

template <class T>
T load(const unsigned char* message, unsigned offset) {
    T value;
    std::memcpy(&value, message + offset, sizeof value);
    return value;
}

void rawSelect(benchmark::State& state) {
    Fb::IUtil* util = fixture->util;
    Fb::ThrowStatusWrapper status(fixture->master->getStatus());
    for (auto _ : state) {
        Fb::ITransaction* transaction =
            fixture->raw->startTransaction(&status, sizeof transactionParameters, transactionParameters);
        Fb::IStatement* statement =
            fixture->raw->prepare(&status, transaction, 0, selectItems, SQL_DIALECT_V6, 0);
        Fb::IMessageMetadata* output = statement->getOutputMetadata(&status);
        std::vector<std::uint64_t> buffer((output->getMessageLength(&status) + 7) / 8);
        auto* message = reinterpret_cast<unsigned char*>(buffer.data());
        unsigned offsets[5], nulls[5];
        for (unsigned i = 0; i < 5; ++i) {
            offsets[i] = output->getOffset(&status, i);
            nulls[i] = output->getNullOffset(&status, i);
        }
        Fb::IResultSet* cursor = statement->openCursor(&status, transaction, nullptr, nullptr, output, 0);
        int seen = 0;
        while (cursor->fetchNext(&status, message) == Fb::IStatus::RESULT_OK) {
            ++seen;
            for (unsigned i = 0; i < 5; ++i)
                benchmark::DoNotOptimize(load<std::int16_t>(message, nulls[i]));
            benchmark::DoNotOptimize(load<std::int64_t>(message, offsets[0]));
            const auto length = load<std::uint16_t>(message, offsets[1]);
            std::string name(reinterpret_cast<const char*>(message + offsets[1] + 2), length);
            benchmark::DoNotOptimize(name);
            benchmark::DoNotOptimize(load<std::int32_t>(message, offsets[2]));
            benchmark::DoNotOptimize(load<double>(message, offsets[3]));
            const auto created = load<ISC_TIMESTAMP>(message, offsets[4]);
            unsigned year, month, day, hours, minutes, seconds, fractions;
            util->decodeDate(created.timestamp_date, &year, &month, &day);
            util->decodeTime(created.timestamp_time, &hours, &minutes, &seconds, &fractions);
            benchmark::DoNotOptimize(year + month + day + hours + minutes + seconds + fractions);
        }
        cursor->close(&status);
        output->release();
        statement->free(&status);
        transaction->commit(&status);
        if (seen != rowCount) state.SkipWithError("wrong row count");
    }
    status.dispose();
    state.SetItemsProcessed(state.iterations() * rowCount);
}

void registerBenchmarks() {
    fixture = new Fixture();
    benchmark::RegisterBenchmark("Firebird/Insert/Zel", zelInsert)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime();
    benchmark::RegisterBenchmark("Firebird/Insert/Raw", rawInsert)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime();
    benchmark::RegisterBenchmark("Firebird/Select/Zel", zelSelect)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime();
    benchmark::RegisterBenchmark("Firebird/Select/Raw", rawSelect)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime();
}

void printRatios(const Zel::Bench::CapturingReporter& reporter) {
    std::printf("\nFirebird embedded, forced writes off, against the hand-written API loop (same run):\n");
    for (const char* work : {"Insert", "Select"}) {
        const std::string prefix = std::string("Firebird/") + work;
        const double zel = reporter.counter(prefix + "/Zel/process_time", "items_per_second");
        const double raw = reporter.counter(prefix + "/Raw/process_time", "items_per_second");
        std::printf("  %-6s 10,000 rows: Zel %.0f rows/s, hand-written %.0f rows/s; Zel/hand-written %s\n",
                    work, zel, raw, Zel::Bench::formatRatio(zel, raw).c_str());
    }
    // Before the engine's own exit handlers run.
    fixture->tearDown();
    delete fixture;
    fixture = nullptr;
}

const bool added =
    Zel::Bench::Db::addGroup({"Zel::Db on embedded Firebird against the client API by hand (same run)",
                              registerBenchmarks, printRatios});

} // namespace
