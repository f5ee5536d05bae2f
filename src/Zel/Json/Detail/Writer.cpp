#include <Zel/Detail/Simd.h>
#include <Zel/Detail/VariantAccess.h>
#include <Zel/Detail/VariantMap.h>
#include <Zel/GenericException.h>
#include <Zel/Json/Detail/DecimalDigits.h>
#include <Zel/Json/Detail/DoubleWriter.h>
#include <Zel/Json/Detail/Writer.h>
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Zel::Json::Detail {

using Zel::Detail::VariantAccess;

namespace {

constexpr char hexDigits[] = "0123456789ABCDEF";

// A text's bytes are copied a word at a time, each word stored whole before it is checked: the
// stores may run up to a word past the text, into room the callers reserve.
constexpr std::size_t storeSlack = 16;

// A string: its bytes, the quotes, the comma after it and the slack.
constexpr std::size_t stringRoom = storeSlack + 8;

// Past this size a document's buffer stops doubling and jumps to the size of the last text handed
// out: below it, toJson copies the text out and the writer keeps its buffer. Only the bytes the
// resize steps below zero-fill are touched, so an over-large jump costs address space, not memory.
constexpr std::size_t largeText = 64 * 1024;

// resize() zero-fills: the string grows by steps just ahead of the writing, so that the zeroed
// bytes are still in cache when the text overwrites them.
constexpr std::size_t fillStep = 64 * 1024;

constexpr std::uint64_t ones = 0x0101010101010101ULL;
constexpr std::uint64_t highs = 0x8080808080808080ULL;
// Fills the unused bytes of a short word: a byte that never needs escaping.
constexpr std::uint64_t filler = ones * 'a';

// Words hold their first byte in the lowest bits, whatever the processor's byte order.
inline std::uint64_t load64(const char* p) noexcept {
    return Zel::Detail::loadLittle64(p);
}

inline std::uint64_t load32(const char* p) noexcept {
    return Zel::Detail::loadLittle32(p);
}

inline void store64(char* p, std::uint64_t word) noexcept {
    Zel::Detail::storeLittle64(p, word);
}

// The high bit of each byte below 0x20, of each double quote and of each backslash. Borrows can
// also mark bytes above the first marked one, never below it: the lowest mark is exact.
inline std::uint64_t escapeMask(std::uint64_t word) noexcept {
    const std::uint64_t quotes = word ^ (ones * '"');
    const std::uint64_t slashes = word ^ (ones * '\\');
    const std::uint64_t control = (word - ones * 0x20) & ~word;
    return (((quotes - ones) & ~quotes) | ((slashes - ones) & ~slashes) | control) & highs;
}

// Copies 16 bytes and returns a bit per byte that needs escaping, the lowest bit for the first byte.
inline unsigned escapeMarks16(const char* in, char* out) noexcept {
#if ZEL_SIMD_SSE2
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
    const __m128i quotes = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('"'));
    const __m128i slashes = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'));
    // Saturating subtraction leaves zero exactly for the bytes up to 0x1F.
    const __m128i control = _mm_cmpeq_epi8(_mm_subs_epu8(bytes, _mm_set1_epi8(0x1F)), _mm_setzero_si128());
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(quotes, slashes), control)));
#else
    const std::uint64_t first = load64(in);
    const std::uint64_t second = load64(in + 8);
    store64(out, first);
    store64(out + 8, second);
    const std::uint64_t mask = escapeMask(first);
    if (mask != 0) return 1U << (std::countr_zero(mask) / 8);
    const std::uint64_t secondMask = escapeMask(second);
    return secondMask != 0 ? 1U << (8 + std::countr_zero(secondMask) / 8) : 0;
#endif
}

// The `length` (1..7) bytes at `p` in the low bytes of a word, without reading past them.
inline std::uint64_t loadShort(const char* p, std::size_t length) noexcept {
    const std::uint64_t rest = filler << (8 * length);
    if (length >= 4) {
        // Two overlapping four-byte loads: the shared bytes are ORed with themselves.
        return load32(p) | load32(p + length - 4) << (8 * (length - 4)) | rest;
    }
    const std::size_t middle = length / 2;
    return static_cast<unsigned char>(p[0]) |
           static_cast<std::uint64_t>(static_cast<unsigned char>(p[middle])) << (8 * middle) |
           static_cast<std::uint64_t>(static_cast<unsigned char>(p[length - 1])) << (8 * (length - 1)) | rest;
}

// The letter after the backslash for the bytes with a short escape; 0 for the ones written \u00XX.
constexpr auto shortEscapes = [] {
    std::array<char, 256> letters{};
    letters['"'] = '"';
    letters['\\'] = '\\';
    letters['\b'] = 'b';
    letters['\t'] = 't';
    letters['\n'] = 'n';
    letters['\f'] = 'f';
    letters['\r'] = 'r';
    return letters;
}();

// Writes the escape of one byte that needs one, returns the end.
inline char* writeEscape(char* out, unsigned char byte) noexcept {
    out[0] = '\\';
    if (const char letter = shortEscapes[byte]) {
        out[1] = letter;
        return out + 2;
    }
    std::memcpy(out + 1, "u00", 3);
    out[4] = hexDigits[byte >> 4];
    out[5] = hexDigits[byte & 0xF];
    return out + 6;
}

// Asks for the cache line holding `address` without waiting for it; a hint only.
inline void prefetch(const void* address) noexcept {
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(address);
#elif ZEL_SIMD_SSE2
    _mm_prefetch(static_cast<const char*>(address), _MM_HINT_T0);
#else
    (void)address;
#endif
}

inline const Variant& valueOf(const Variant& value) noexcept {
    return value;
}
inline const Variant& valueOf(const Zel::Detail::VariantMap::Entry& entry) noexcept {
    return entry.second;
}

} // namespace

void Writer::grow(std::size_t needed) {
    const std::size_t used = m_cursor ? static_cast<std::size_t>(m_cursor - m_buffer.data()) : 0;
    const std::size_t required = used + needed;
    if (required > m_buffer.capacity()) {
        std::size_t capacity = std::max({m_buffer.capacity() * 2, required, std::size_t{256}});
        if (capacity > largeText && capacity < m_lastTaken + m_lastTaken / 16)
            capacity = m_lastTaken + m_lastTaken / 16;
        m_buffer.reserve(capacity);
    }
    m_buffer.resize(std::min(m_buffer.capacity(), std::max(required, m_buffer.size() + fillStep)));
    m_cursor = m_buffer.data() + used;
    m_limit = m_buffer.data() + m_buffer.size();
}

std::string Writer::take() {
    const std::size_t used = written().size();
    std::string text;
    text.swap(m_buffer);
    text.resize(used);
    m_lastTaken = used;
    m_cursor = m_limit = nullptr;
    return text;
}

// The text in quotes. Needs room for its bytes and stringRoom more; reserves its own for escapes.
char* Writer::writeQuoted(char* out, const char* in, std::size_t length) {
    // Most keys and many values fit in two words: one check for the whole text.
    if (length <= 16 && length > 0) {
        const std::uint64_t first = length >= 8 ? load64(in) : loadShort(in, length);
        const std::uint64_t last = length > 8 ? load64(in + length - 8) : filler;
        if ((escapeMask(first) | escapeMask(last)) == 0) {
            out[0] = '"';
            store64(out + 1, first);
            if (length > 8) store64(out + 1 + length - 8, last);
            out[length + 1] = '"';
            return out + length + 2;
        }
    }
    return writeQuotedEscaped(out, in, length);
}

char* Writer::writeQuotedEscaped(char* out, const char* in, std::size_t length) {
    const char* const end = in + length;
    *out++ = '"';
    for (;;) {
        const auto left = static_cast<std::size_t>(end - in);
        std::size_t clean;
        if (left >= 16) {
            const unsigned marks = escapeMarks16(in, out);
            if (marks == 0) {
                in += 16;
                out += 16;
                continue;
            }
            clean = static_cast<std::size_t>(std::countr_zero(marks));
        } else if (left >= 8) {
            // Two overlapping words cover the rest.
            const std::uint64_t first = load64(in);
            const std::uint64_t last = load64(end - 8);
            store64(out, first);
            store64(out + left - 8, last);
            const std::uint64_t firstMask = escapeMask(first);
            const std::uint64_t lastMask = escapeMask(last);
            if ((firstMask | lastMask) == 0) {
                out += left;
                break;
            }
            clean = firstMask != 0 ? static_cast<std::size_t>(std::countr_zero(firstMask) / 8)
                                   : left - 8 + static_cast<std::size_t>(std::countr_zero(lastMask) / 8);
        } else if (left > 0) {
            const std::uint64_t word = loadShort(in, left);
            store64(out, word);
            const std::uint64_t mask = escapeMask(word);
            if (mask == 0) {
                out += left;
                break;
            }
            clean = static_cast<std::size_t>(std::countr_zero(mask) / 8);
        } else {
            break;
        }
        in += clean;
        out += clean;
        const auto byte = static_cast<unsigned char>(*in++);
        out = writeEscape(reserve(out, static_cast<std::size_t>(end - in) + stringRoom + 6), byte);
    }
    *out = '"';
    return out + 1;
}

// A string value and the comma after it.
inline char* Writer::writeStringMember(char* out, const Variant& value) {
    const std::string& text = VariantAccess::string(value);
    out = writeQuoted(reserve(out, text.size() + stringRoom), text.data(), text.size());
    *out = ',';
    return out + 1;
}

void Writer::writeString(std::string_view text) {
    m_cursor = writeQuoted(reserve(m_cursor, text.size() + stringRoom), text.data(), text.size());
}

// A scalar other than a string, and the comma after it. Needs memberRoom.
char* Writer::writeScalar(char* out, const Variant& value) {
    // A member's room: opening quote, the key's slack, closing quote and colon, the widest number, comma.
    static_assert(memberRoom >= 1 + storeSlack + 2 + DoubleWriter::maxWrite + 1);
    const VariantAccess::Word& word = VariantAccess::word(value);
    switch (value.type()) {
    case Variant::Type::Null:
        std::memcpy(out, "null,", 5);
        return out + 5;
    case Variant::Type::Bool:
        if (word.b) {
            std::memcpy(out, "true,", 5);
            return out + 5;
        }
        std::memcpy(out, "false,", 6);
        return out + 6;
    case Variant::Type::Byte:
        out = writeUnsigned(out, word.u8);
        break;
    case Variant::Type::Short:
        out = writeSigned(out, word.i16);
        break;
    case Variant::Type::Int32:
        out = writeSigned(out, word.i32);
        break;
    case Variant::Type::Int64:
        out = writeSigned(out, word.i64);
        break;
    case Variant::Type::Float:
    case Variant::Type::Double: {
        const double number = value.type() == Variant::Type::Double ? word.d : static_cast<double>(word.f);
        if (!std::isfinite(number)) {
            // JSON has no spelling for NaN or infinity.
            std::memcpy(out, "null,", 5);
            return out + 5;
        }
        out = DoubleWriter::write(out, number);
        break;
    }
    default:
        throw GenericException("Unsupported Variant type:" + Variant::typeToString(value.type()));
    }
    *out = ',';
    return out + 1;
}

// Writes an empty container whole, or opens one and pushes it (true). Needs three bytes of room;
// leaves m_cursor after what it wrote.
bool Writer::open(char* out, const Variant& container) {
    if (container.type() == Variant::Type::Map) {
        const Zel::Detail::VariantMap& map = VariantAccess::map(container);
        const Zel::Detail::VariantMap::Chunk& chunk = map.chunks()[0];
        return openRun(out, "{},", map.empty(), chunk.data(), chunk.data() + chunk.size(), &map);
    }
    const std::vector<Variant>& elements = VariantAccess::vector(container);
    return openRun(out, "[],", elements.empty(), elements.data(), elements.data() + elements.size(), nullptr);
}

// `brackets` is the empty container's text; the first run of members is prefetched.
template <class Member>
bool Writer::openRun(char* out, const char* brackets, bool empty, const Member* first, const Member* last,
                     const Zel::Detail::VariantMap* map) {
    if (empty) {
        std::memcpy(out, brackets, 3);
        m_cursor = out + 3;
        return false;
    }
    *out = brackets[0];
    m_cursor = out + 1;
    const Member* const frontier = last - first > firstRun ? first + firstRun : last;
    prefetchRun(first, frontier);
    if constexpr (std::is_same_v<Member, Entry>) {
        m_stack.push_back(Frame{nullptr, nullptr, first, last, map, 0, frontier});
    } else {
        m_stack.push_back(Frame{first, last, nullptr, nullptr, nullptr, 0, frontier});
    }
    return true;
}

// The tree's payloads lie wherever the heap put them, and walking it is a chain of cache misses:
// a value's payload, then the text or the elements it points to. Asking for them a run of members
// ahead overlaps those misses with one another and with the writing.
void Writer::prefetchPayload(const Variant& value) noexcept {
    if (Variant::hasExternalValue(value.type())) prefetch(VariantAccess::payload(value));
}

void Writer::prefetchContents(const Variant& value) noexcept {
    switch (value.type()) {
    case Variant::Type::String: {
        // The whole text, up to a point: long values are what the hardware's own prefetching
        // picks up by itself after a few lines.
        const std::string& text = VariantAccess::string(value);
        const char* line = text.data();
        const char* const end = line + std::min<std::size_t>(text.size(), 1024);
        for (; line < end; line += 64)
            prefetch(line);
        break;
    }
    case Variant::Type::Map: {
        const Zel::Detail::VariantMap& map = VariantAccess::map(value);
        // The first chunk alone, empty for an empty map: the map's size lies in another line.
        prefetch(map.chunks()[0].data());
        break;
    }
    case Variant::Type::Vector:
        prefetch(VariantAccess::vector(value).data());
        break;
    default:
        break;
    }
}

// Three passes over a run of members: their payloads, then what the payloads point to, then the
// payloads of their own first members. Each pass reads what the one before asked for, so the
// misses of a whole run overlap instead of following one another.
template <class Member>
void Writer::prefetchRun(const Member* first, const Member* last) noexcept {
    for (const Member* m = first; m != last; ++m)
        prefetchPayload(valueOf(*m));
    for (const Member* m = first; m != last; ++m)
        prefetchContents(valueOf(*m));
    for (const Member* m = first; m != last; ++m)
        prefetchGrandchildren(valueOf(*m));
}

// The third stage: the payloads of a container's first members.
void Writer::prefetchGrandchildren(const Variant& value) noexcept {
    if (value.type() == Variant::Type::Map) {
        const Zel::Detail::VariantMap& map = VariantAccess::map(value);
        const Zel::Detail::VariantMap::Chunk& chunk = map.chunks()[0];
        const std::size_t count = std::min<std::size_t>(chunk.size(), 4);
        for (std::size_t i = 0; i < count; ++i)
            prefetchPayload(chunk[i].second);
    } else if (value.type() == Variant::Type::Vector) {
        const std::vector<Variant>& elements = VariantAccess::vector(value);
        const std::size_t count = std::min<std::size_t>(elements.size(), 4);
        for (std::size_t i = 0; i < count; ++i)
            prefetchPayload(elements[i]);
    }
}

// Writes members until one opens a container (true: `frame` may then be gone, as the stack grew)
// or the map ends (false).
bool Writer::continueMap(Frame& frame) {
    char* out = m_cursor;
    for (;;) {
        const Entry* entry = frame.entry;
        const Entry* const end = frame.entryEnd;
        while (entry != end) {
            if (frame.frontier != end && static_cast<const Entry*>(frame.frontier) - entry <= nextRun) {
                const Entry* const run = static_cast<const Entry*>(frame.frontier);
                const Entry* const runEnd = end - run > nextRun ? run + nextRun : end;
                prefetchRun(run, runEnd);
                frame.frontier = runEnd;
            }
            const std::string& key = entry->first;
            const Variant& value = entry->second;
            ++entry;
            // One check for the key, its quotes, the colon and any scalar but a string.
            out = writeQuoted(reserve(out, key.size() + memberRoom), key.data(), key.size());
            *out++ = ':';
            switch (value.type()) {
            case Variant::Type::String:
                out = writeStringMember(out, value);
                break;
            case Variant::Type::Map:
            case Variant::Type::Vector:
                frame.entry = entry;
                if (open(out, value)) return true;
                out = m_cursor;
                break;
            default:
                out = writeScalar(out, value);
                break;
            }
        }
        const Zel::Detail::VariantMap::ChunkList& chunks = frame.map->chunks();
        if (++frame.chunk == chunks.size()) {
            m_cursor = out;
            return false;
        }
        const Zel::Detail::VariantMap::Chunk& chunk = chunks[frame.chunk];
        frame.entry = chunk.data();
        frame.entryEnd = chunk.data() + chunk.size();
        frame.frontier = frame.entry;
    }
}

bool Writer::continueVector(Frame& frame) {
    char* out = m_cursor;
    const Variant* element = frame.element;
    const Variant* const end = frame.elementEnd;
    while (element != end) {
        if (frame.frontier != end && static_cast<const Variant*>(frame.frontier) - element <= nextRun) {
            const Variant* const run = static_cast<const Variant*>(frame.frontier);
            const Variant* const runEnd = end - run > nextRun ? run + nextRun : end;
            prefetchRun(run, runEnd);
            frame.frontier = runEnd;
        }
        const Variant& value = *element++;
        switch (value.type()) {
        case Variant::Type::String:
            out = writeStringMember(out, value);
            break;
        case Variant::Type::Map:
        case Variant::Type::Vector:
            frame.element = element;
            if (open(reserve(out, memberRoom), value)) return true;
            out = m_cursor;
            break;
        default:
            out = writeScalar(reserve(out, memberRoom), value);
            break;
        }
    }
    m_cursor = out;
    return false;
}

void Writer::write(const Variant& root) {
    // Containers are walked from an explicit stack, so depth is limited by memory only.
    const std::size_t bottom = m_stack.size();
    char* out = reserve(m_cursor, memberRoom);
    switch (root.type()) {
    case Variant::Type::String:
        m_cursor = writeStringMember(out, root);
        break;
    case Variant::Type::Map:
    case Variant::Type::Vector:
        open(out, root);
        break;
    default:
        m_cursor = writeScalar(out, root);
        break;
    }
    while (m_stack.size() > bottom) {
        Frame& frame = m_stack.back();
        const bool isMap = frame.map != nullptr;
        if (isMap ? continueMap(frame) : continueVector(frame)) continue;
        m_stack.pop_back();
        char* const close = reserve(m_cursor, 1);
        close[-1] = isMap ? '}' : ']';
        *close = ',';
        m_cursor = close + 1;
    }
    --m_cursor;
}

} // namespace Zel::Json::Detail
