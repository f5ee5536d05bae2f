#pragma once

#include <Zel/Detail/VariantMap.h>
#include <Zel/Variant.h>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Json::Detail {

// The JSON reader: three positions into the caller's bytes (start, end, current), which are
// never copied.
//
// The hot loops work on a local cursor and store it in m_current only where an error is reported,
// so that the offset in "Invalid character #%d at %td" stays exactly where it was read.
class Reader {
    struct Frame {
        bool isObject;
        std::size_t start; // first pending member or element of this container
    };

public:
    // The work stacks of a parse. Each thread keeps one, so that parsing the many small documents
    // of a service (call params, replies) allocates for the values only.
    struct Scratch {
        std::vector<Frame> frames;
        std::vector<Zel::Detail::VariantMap::Entry> members;
        std::vector<Variant> values;
        std::string text; // a string value with escapes, decoded before it is copied at its size
        // Every empty array this thread reads shares this payload: a vector copies its payload
        // before any change, so the sharing cannot be seen, and documents with thousands of []
        // allocate nothing for them.
        Variant emptyVector;
    };

    Reader(std::string_view text, Scratch& scratch) noexcept
        : m_start(text.data()), m_end(text.data() + text.size()), m_current(m_start), m_scratch(scratch) {}
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    // Leaves the scratch empty, even after a failed parse, and lets go of what a big document grew.
    ~Reader();

    Variant parse();

    // Shared with decodeJsonString: one 16-bit code as UTF-8; the one-letter escapes (false for any
    // other letter, including 'u'); a hex digit's value or -1.
    static void appendUtf8(std::string& out, unsigned code);
    static bool appendSimpleEscape(std::string& out, char letter);
    static int hexValue(char c) noexcept;

private:
    [[noreturn]] static void throwUnexpectedEnd();
    [[noreturn]] void throwInvalidCharacter(const char* at);
    const char* skipWhiteSpace(const char* p) const;
    const char* readLiteral(const char* p, const char* literal, std::size_t length);
    const char* readEscaped(const char* p, std::string& out);
    const char* readStringValue(const char* p, Variant& out);
    const char* readKey(const char* p);
    const char* readNumber(const char* p, Variant& out);
    const char* readFraction(const char* first, const char* p, std::uint64_t mantissa, bool hasDigits,
                             bool negative, Variant& out);
    const char* readLongInteger(const char* first, const char* digits, const char* p, bool negative,
                                Variant& out);
    const char* readNumberRun(const char* first, const char* p, bool isFloat, Variant& out);
    static Variant readFloat(const char* first, const char* last);
    Variant closeObject(std::size_t start);
    Variant closeVector(std::size_t start);

    const char* m_start;
    const char* m_end;
    const char* m_current;
    Scratch& m_scratch;
};

} // namespace Zel::Json::Detail
