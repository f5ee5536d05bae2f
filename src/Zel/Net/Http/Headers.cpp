#include <Zel/Net/Http/Headers.h>

#include <Zel/Json/Json.h>
#include <Zel/Variant.h>

#include <charconv>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace Zel::Net::Http {

namespace {

inline unsigned char foldCase(unsigned char c) noexcept {
    return static_cast<unsigned char>(c | (static_cast<unsigned>(c - 'A') < 26u ? 0x20 : 0));
}

} // namespace

const std::string Headers::CONTENT_LENGTH = "Content-Length";
const std::string Headers::CONTENT_TYPE = "Content-Type";

Headers::~Headers() = default;

namespace {

// Eight bytes with 'A'..'Z' turned to lower case and every other byte kept.
inline std::uint64_t foldWord(std::uint64_t word) noexcept {
    constexpr std::uint64_t ones = 0x0101010101010101ull;
    const std::uint64_t ascii = word & (0x7F * ones);
    const std::uint64_t atLeastA = ascii + (0x80 - 'A') * ones;   // high bit set from 'A' up
    const std::uint64_t aboveZ = ascii + (0x80 - 'Z' - 1) * ones; // high bit set above 'Z'
    const std::uint64_t upper = atLeastA & ~aboveZ & ~word & (0x80 * ones);
    return word | (upper >> 2);
}

inline std::uint64_t loadWord(const char* bytes) noexcept {
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// The last 1 to 7 bytes, without a call to memcpy of a variable length.
inline std::uint64_t loadTail(const char* bytes, std::size_t count) noexcept {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < count; ++i)
        word |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    return word;
}

} // namespace

bool Headers::sameName(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    std::size_t i = 0;
    for (; i + 8 <= a.size(); i += 8) {
        const std::uint64_t x = loadWord(a.data() + i);
        const std::uint64_t y = loadWord(b.data() + i);
        if (x != y && foldWord(x) != foldWord(y)) return false;
    }
    if (i == a.size()) return true;
    const std::uint64_t x = loadTail(a.data() + i, a.size() - i);
    const std::uint64_t y = loadTail(b.data() + i, a.size() - i);
    return x == y || foldWord(x) == foldWord(y);
}

std::size_t Headers::hashName(std::string_view name) noexcept {
    // 64-bit FNV-1a over the folded bytes.
    std::uint64_t hash = 14695981039346656037ull;
    for (const char c : name) {
        hash ^= foldCase(static_cast<unsigned char>(c));
        hash *= 1099511628211ull;
    }
    return static_cast<std::size_t>(hash);
}

std::size_t Headers::indexOf(std::string_view name) const noexcept {
    if (m_index.empty()) {
        for (std::size_t i = 0; i < m_entries.size(); ++i) {
            const Entry& entry = m_entries[i];
            if (entry.nameSize == name.size() && sameName(nameOf(entry), name)) return i;
        }
        return npos;
    }
    const std::size_t mask = m_index.size() - 1;
    for (std::size_t slot = hashName(name) & mask;; slot = (slot + 1) & mask) {
        const std::uint32_t held = m_index[slot];
        if (held == 0) return npos;
        if (sameName(nameOf(m_entries[held - 1]), name)) return held - 1;
    }
}

void Headers::indexEntry(std::size_t entry) {
    const std::size_t mask = m_index.size() - 1;
    std::size_t slot = hashName(nameOf(m_entries[entry])) & mask;
    while (m_index[slot] != 0)
        slot = (slot + 1) & mask;
    m_index[slot] = static_cast<std::uint32_t>(entry + 1);
}

void Headers::rebuildIndex() {
    if (m_entries.size() <= linearLimit) {
        m_index.clear();
        return;
    }
    // At most half full, so that probes stay short.
    std::size_t slots = 64;
    while (slots < m_entries.size() * 2)
        slots *= 2;
    m_index.assign(slots, 0);
    for (std::size_t i = 0; i < m_entries.size(); ++i)
        indexEntry(i);
}

void Headers::compact() {
    std::string text;
    text.reserve(m_text.size() - m_garbage);
    for (Entry& entry : m_entries) {
        const auto nameOffset = static_cast<std::uint32_t>(text.size());
        text.append(nameOf(entry));
        const auto valueOffset = static_cast<std::uint32_t>(text.size());
        text.append(valueOf(entry));
        entry.nameOffset = nameOffset;
        entry.valueOffset = valueOffset;
    }
    m_text = std::move(text);
    m_garbage = 0;
}

void Headers::checkRoom(std::size_t added) const {
    // Offsets are 32-bit; replaced values are compacted away long before this.
    if (m_text.size() + added >= std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("Headers: names and values exceed 4 GiB");
    }
}

Headers& Headers::set(std::string_view name, std::string_view value) {
    if (const std::size_t found = indexOf(name); found != npos) {
        Entry& entry = m_entries[found];
        if (value.size() <= entry.valueSize) {
            // The value may come from these very headers; memmove copes with the overlap.
            std::memmove(m_text.data() + entry.valueOffset, value.data(), value.size());
            m_garbage += entry.valueSize - value.size();
        } else {
            checkRoom(value.size());
            const std::size_t offset = m_text.size();
            m_text.append(value);
            m_garbage += entry.valueSize;
            entry.valueOffset = static_cast<std::uint32_t>(offset);
        }
        entry.valueSize = static_cast<std::uint32_t>(value.size());
        if (m_garbage > 4096 && m_garbage > m_text.size() / 2) compact();
        return *this;
    }
    checkRoom(name.size() + value.size());
    // Appending may move the text that `name` or `value` points into (a header copied from these
    // very headers); offsets into the text survive that.
    const char* const textBegin = m_text.data();
    const char* const textEnd = textBegin + m_text.size();
    const bool nameInside = name.data() >= textBegin && name.data() < textEnd;
    const bool valueInside = value.data() >= textBegin && value.data() < textEnd;
    const std::size_t nameFrom = nameInside ? static_cast<std::size_t>(name.data() - textBegin) : 0;
    const std::size_t valueFrom = valueInside ? static_cast<std::size_t>(value.data() - textBegin) : 0;
    m_text.reserve(m_text.size() + name.size() + value.size());
    if (nameInside) name = std::string_view(m_text.data() + nameFrom, name.size());
    if (valueInside) value = std::string_view(m_text.data() + valueFrom, value.size());

    const auto at = static_cast<std::uint32_t>(m_text.size());
    const Entry entry{at, static_cast<std::uint32_t>(name.size()),
                      at + static_cast<std::uint32_t>(name.size()), static_cast<std::uint32_t>(value.size())};
    m_text.append(name);
    m_text.append(value);
    // Most messages carry a handful to a dozen headers: one allocation for all of them.
    if (m_entries.capacity() == 0) m_entries.reserve(16);
    m_entries.push_back(entry);
    if (!m_index.empty() && m_entries.size() * 2 <= m_index.size()) {
        indexEntry(m_entries.size() - 1);
    } else if (m_entries.size() > linearLimit) {
        rebuildIndex();
    }
    return *this;
}

Headers& Headers::setInteger(std::string_view name, std::int64_t value) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    return set(name, std::string_view(digits, static_cast<std::size_t>(result.ptr - digits)));
}

std::string Headers::get(std::string_view name, std::string_view defaultValue) const {
    const std::size_t found = indexOf(name);
    return std::string(found != npos ? valueOf(m_entries[found]) : defaultValue);
}

std::optional<std::string_view> Headers::find(std::string_view name) const {
    const std::size_t found = indexOf(name);
    if (found == npos) return std::nullopt;
    return valueOf(m_entries[found]);
}

std::int64_t Headers::getInteger(std::string_view name, std::int64_t defaultValue) const {
    const std::size_t found = indexOf(name);
    if (found == npos) return defaultValue;
    const std::string_view text = valueOf(m_entries[found]);
    std::size_t i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    // Accumulated as a negative number, which reaches the 64-bit minimum too; saturates beyond.
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    std::int64_t value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        const int digit = text[i] - '0';
        if (value < (lowest + digit) / 10) {
            value = lowest;
        } else {
            value = value * 10 - digit;
        }
    }
    if (negative) return value;
    return value == lowest ? std::numeric_limits<std::int64_t>::max() : -value;
}

void Headers::erase(std::string_view name) {
    const std::size_t found = indexOf(name);
    if (found == npos) return;
    m_garbage += m_entries[found].nameSize + m_entries[found].valueSize;
    m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(found));
    if (m_entries.empty()) {
        clear();
        return;
    }
    if (!m_index.empty()) rebuildIndex();
    if (m_garbage > 4096 && m_garbage > m_text.size() / 2) compact();
}

void Headers::clear() noexcept {
    m_text.clear();
    m_entries.clear();
    m_index.clear();
    m_garbage = 0;
}

void Headers::reserve(std::size_t headers, std::size_t bytes) {
    m_entries.reserve(headers);
    m_text.reserve(bytes);
}

Headers& Headers::setContentType(std::string_view type) {
    if (type.empty()) {
        erase(CONTENT_TYPE);
        return *this;
    }
    return set(CONTENT_TYPE, type);
}

void Headers::appendTo(std::string& out) const {
    for (const Entry& entry : m_entries) {
        out += nameOf(entry);
        out += ": ";
        out += valueOf(entry);
        out += "\r\n";
    }
}

std::string Headers::toString() const {
    std::string text;
    appendTo(text);
    return text;
}

std::string Headers::toJson() const {
    std::string json = "{";
    for (const Entry& entry : m_entries) {
        if (json.size() > 1) json += ',';
        json += Json::_encodeString(nameOf(entry));
        json += ':';
        json += Json::_encodeString(valueOf(entry));
    }
    json += '}';
    return json;
}

void Headers::fromDto(const Variant& dto) {
    Headers headers;
    for (const auto& entry : dto)
        headers.set(entry.key(), static_cast<std::string>(entry.value()));
    *this = std::move(headers);
}

bool Headers::equal(const Headers& a, const Headers& b) {
    if (a.size() != b.size()) return false;
    for (const Entry& entry : a.m_entries) {
        const std::size_t found = b.indexOf(a.nameOf(entry));
        if (found == npos || b.nameOf(b.m_entries[found]) != a.nameOf(entry) ||
            b.valueOf(b.m_entries[found]) != a.valueOf(entry)) {
            return false;
        }
    }
    return true;
}

} // namespace Zel::Net::Http
