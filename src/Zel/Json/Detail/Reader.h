#pragma once

#include <Zel/Detail/VariantMap.h>
#include <Zel/Variant.h>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Json::Detail {

// The JSON reader: three positions into the caller's bytes (start, end, current), which are
// never copied.
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
    };

    Reader(std::string_view text, Scratch& scratch) noexcept
        : m_start(text.data()), m_end(text.data() + text.size()), m_current(m_start),
          m_frames(scratch.frames), m_members(scratch.members), m_values(scratch.values) {}
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
    [[noreturn]] void throwInvalidCharacter() const;
    char skipWhiteSpace();
    void readLiteral(const char* literal, std::size_t length);
    void readString(std::string& out);
    void readKey();
    Variant readScalar(char c);
    Variant readNumber();
    Variant readFloat(const char* first, const char* last);

    const char* m_start;
    const char* m_end;
    const char* m_current;
    std::vector<Frame>& m_frames;
    std::vector<Zel::Detail::VariantMap::Entry>& m_members;
    std::vector<Variant>& m_values;
};

} // namespace Zel::Json::Detail
