#include <Zel/ArgumentException.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Json/ParserException.h>
#include <Zel/NoFactoryException.h>
#include <Zel/NotSupportedException.h>
#include <Zel/Parser/UnexpectedCharException.h>
#include <Zel/Parser/UnexpectedEofException.h>
#include <Zel/VariantInvalidOperationException.h>

#include <gtest/gtest.h>

#include <type_traits>

namespace {

static_assert(std::is_base_of_v<std::exception, Zel::GenericException>);
static_assert(std::is_base_of_v<Zel::GenericException, Zel::InvalidOperationException>);
static_assert(std::is_base_of_v<Zel::InvalidOperationException, Zel::VariantInvalidOperationException>);
static_assert(std::is_base_of_v<Zel::GenericException, Zel::ArgumentException>);
static_assert(std::is_base_of_v<Zel::GenericException, Zel::NotSupportedException>);
static_assert(std::is_base_of_v<Zel::GenericException, Zel::NoFactoryException>);
static_assert(std::is_base_of_v<Zel::GenericException, Zel::Json::ParserException>);
static_assert(std::is_base_of_v<Zel::GenericException, Zel::Parser::ParserException>);
static_assert(std::is_base_of_v<Zel::Parser::ParserException, Zel::Parser::UnexpectedCharException>);
static_assert(std::is_base_of_v<Zel::Parser::ParserException, Zel::Parser::UnexpectedEofException>);

void misuse() {
    ZEL_THROW_INVALID_OPERATION();
}

TEST(InvalidOperationException, NamesFunctionFileAndLine) {
    const int line = __LINE__ - 4;
    try {
        misuse();
        ADD_FAILURE();
    } catch (const Zel::InvalidOperationException& error) {
        // This test lives outside src/, so the whole path below the repository's tests/ shows.
        EXPECT_EQ(std::string(error.what()).substr(0, 36), "Invalid operation | func=misuse | fi");
        EXPECT_NE(std::string(error.what()).find(" | line=" + std::to_string(line)), std::string::npos);
    }
    EXPECT_STREQ(Zel::InvalidOperationException("setQueue", "/home/u/zel/src/Zel/Tasks/AbstractExecutor.cpp", 42).what(),
                 "Invalid operation | func=setQueue | file=Zel/Tasks/AbstractExecutor | line=42");
}

TEST(InvalidOperationException, ReducesSourcePaths) {
    const std::pair<const char*, const char*> cases[] = {
        {"/work/main/src/Zel/Orm/SessionFactory.cpp", "Zel/Orm/SessionFactory"},
        {"src/Zel/Platform/Plugin.cpp", "Zel/Platform/Plugin"},
        {"C:\\build\\src\\Zel\\Platform\\Plugin.cpp", "Zel\\Platform\\Plugin"},
        {"/srcs/x/src/Zel/Variant.h", "Zel/Variant"},
        {"Zel/Variant.cpp", "Zel/Variant"},
        {"/a.b/src/Zel/NoExtension", "Zel/NoExtension"},
    };
    for (const auto& [file, expected] : cases) EXPECT_EQ(Zel::Detail::librarySourcePath(file), expected) << file;
}

TEST(ParserExceptions, CarryPositionAndSize) {
    const Zel::Parser::UnexpectedCharException badChar(0x3a, 17);
    EXPECT_STREQ(badChar.what(), "Unexpected character | char=0x3a | position=17");
    EXPECT_EQ(badChar.position(), 17);
    const Zel::Parser::UnexpectedEofException eof(9000000000LL);
    EXPECT_STREQ(eof.what(), "Unexpected end of data | size=9000000000");
}

} // namespace
