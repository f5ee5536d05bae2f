#pragma once

#include <Zel/Detail/VariantMap.h>
#include <Zel/Variant.h>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Json::Detail {

// Compact JSON writer over a growable buffer written through a raw cursor: the per-byte cost of a
// std::string append would dominate writing.
//
// Every value is written with a comma after it, and closing a container overwrites its last comma:
// no "is this the first member" test per member. The comma after the root is dropped at the end.
// The hot paths work on a local cursor and hand it back to m_cursor only around growing: a char
// store through a member pointer could alias the member, and the compiler would reload it.
class Writer {
public:
    void write(const Variant& value);
    void writeString(std::string_view text);
    std::string take();

    // For a writer kept to serialise many values: the text so far, and a restart that keeps the
    // buffer's and the stack's capacity.
    std::string_view written() const noexcept {
        return {m_buffer.data(), m_cursor ? static_cast<std::size_t>(m_cursor - m_buffer.data()) : 0};
    }
    void reset() noexcept {
        m_cursor = m_buffer.data();
        m_limit = m_buffer.data() + m_buffer.size();
        m_stack.clear();
    }

private:
    using Entry = Zel::Detail::VariantMap::Entry;

    // A container being written: the rest of a vector, or the rest of one chunk of a map.
    struct Frame {
        const Variant* element; // vectors
        const Variant* elementEnd;
        const Entry* entry; // maps: in chunk `chunk` of `map`
        const Entry* entryEnd;
        const Zel::Detail::VariantMap* map; // null for a vector
        std::size_t chunk;
        const void* frontier; // members up to here have been prefetched
    };

    // Members prefetched when a container opens, and then at a time as the writing nears the frontier.
    static constexpr std::ptrdiff_t firstRun = 32;
    static constexpr std::ptrdiff_t nextRun = 16;

    // Room a member needs beyond its key's bytes: quotes, colon, the longest scalar, the comma and
    // the over-wide stores of the string and number writers.
    static constexpr std::size_t memberRoom = 80;

    // Makes room for `bytes` past `out` and returns where `out` now is.
    char* reserve(char* out, std::size_t bytes) {
        if (static_cast<std::size_t>(m_limit - out) >= bytes) return out;
        m_cursor = out;
        grow(bytes);
        return m_cursor;
    }
    void grow(std::size_t needed);
    char* writeQuoted(char* out, const char* text, std::size_t length);
    char* writeQuotedEscaped(char* out, const char* text, std::size_t length);
    char* writeStringMember(char* out, const Variant& value);
    static char* writeScalar(char* out, const Variant& value);
    bool open(char* out, const Variant& container);
    template <class Member>
    bool openRun(char* out, const char* brackets, bool empty, const Member* first, const Member* last,
                 const Zel::Detail::VariantMap* map);
    bool continueMap(Frame& frame);
    bool continueVector(Frame& frame);
    static void prefetchPayload(const Variant& value) noexcept;
    static void prefetchContents(const Variant& value) noexcept;
    static void prefetchGrandchildren(const Variant& value) noexcept;
    template <class Member>
    static void prefetchRun(const Member* first, const Member* last) noexcept;

    std::string m_buffer;
    char* m_cursor = nullptr;
    char* m_limit = nullptr;
    // The size of the last text take() handed out: a writer that serialises big documents one after
    // another grows straight to that size instead of doubling its way there again.
    std::size_t m_lastTaken = 0;
    std::vector<Frame> m_stack;
};

} // namespace Zel::Json::Detail
