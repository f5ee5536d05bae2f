#pragma once

#include <Zel/Json/IJsonable.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zel {
class Variant;
}

namespace Zel::Net::Http {

// The header fields of an HTTP message: one value per name.
//
// Names compare case-insensitively in ASCII; a name keeps the spelling it was first stored with,
// and a later set under another spelling replaces only the value. Setting a name again replaces
// its value: there are no repeated fields and nothing is joined with commas. Iteration, and so the
// order of the lines written, follows the collection's own order (the order of first insertion);
// nothing sorts the headers.
//
// The headers are a read-only range of (name, value) pairs of string views. Views into the
// headers, from iteration or find, stay valid until the headers are changed.
//
// Storage: names and values lie back to back in one buffer (of at most 4 GiB), so a whole header
// block costs a couple of allocations. Setting a field that would take the buffer past 4 GiB
// throws std::length_error, as a standard container that cannot grow does, and leaves the headers
// as they were. Up to 16 headers are found by a linear scan; beyond that a hash index
// keeps look-ups constant-time, however many headers a peer sends.
class ZEL_API Headers : public Json::IJsonable {
public:
    using value_type = std::pair<std::string_view, std::string_view>;
    class const_iterator;

    static const std::string CONTENT_LENGTH; // "Content-Length"
    static const std::string CONTENT_TYPE;   // "Content-Type"

    Headers() = default;
    Headers(const Headers&) = default;
    Headers(Headers&&) noexcept = default;
    Headers& operator=(const Headers&) = default;
    Headers& operator=(Headers&&) noexcept = default;
    ~Headers() override;

    // Inserts or replaces.
    Headers& set(std::string_view name, std::string_view value);
    Headers& set(std::string_view name, const std::string& value) {
        return set(name, std::string_view(value));
    }
    Headers& set(std::string_view name, const char* value) { return set(name, std::string_view(value)); }
    // In decimal, with a leading '-' when negative.
    template <std::integral T>
    requires(!std::same_as<T, bool> && !std::same_as<T, char>) Headers& set(std::string_view name, T value) {
        return setInteger(name, static_cast<std::int64_t>(value));
    }

    // The value, or `defaultValue` when the name is absent.
    std::string get(std::string_view name, std::string_view defaultValue = {}) const;
    std::string get(std::string_view name, const char* defaultValue) const {
        return get(name, std::string_view(defaultValue));
    }
    std::string get(std::string_view name, const std::string& defaultValue) const {
        return get(name, std::string_view(defaultValue));
    }
    // The value's leading decimal integer (optional sign, then digits; 0 when there are none;
    // limited to the 64-bit range), or `defaultValue` when the name is absent.
    template <std::integral T>
    requires(!std::same_as<T, bool> && !std::same_as<T, char>) std::int64_t
        get(std::string_view name, T defaultValue)
    const { return getInteger(name, static_cast<std::int64_t>(defaultValue)); }
    // A view of the value, or nothing when the name is absent.
    std::optional<std::string_view> find(std::string_view name) const;

    bool isSet(std::string_view name) const { return indexOf(name) != npos; }
    // An absent name is no error.
    void erase(std::string_view name);
    // Keeps the storage for the next headers.
    void clear() noexcept;
    std::size_t size() const noexcept { return m_entries.size(); }
    bool empty() const noexcept { return m_entries.empty(); }
    const_iterator begin() const noexcept;
    const_iterator end() const noexcept;
    // The headers as a read-only range of (name, value) views, for code that should not change them:
    //     for (const auto& [name, value] : message.headers().headers()) ...
    const Headers& headers() const noexcept { return *this; }
    // Room for `headers` headers of `bytes` bytes of names and values together.
    void reserve(std::size_t headers, std::size_t bytes);

    // -1 when "Content-Length" is absent, else its value converted like get.
    std::int64_t contentLength() const { return getInteger(CONTENT_LENGTH, -1); }
    Headers& setContentLength(std::int64_t length) { return setInteger(CONTENT_LENGTH, length); }
    // The "Content-Type" value or the empty string.
    std::string contentType() const { return get(CONTENT_TYPE); }
    // An empty type erases the header.
    Headers& setContentType(std::string_view type);

    // "Name: value\r\n" per header, without a closing empty line.
    std::string toString() const;
    // Appends what toString returns.
    void appendTo(std::string& out) const;

    // {"Name":"value",...}
    std::string toJson() const override;
    // Replaces every header with the members of a Variant map; values are converted to text. A
    // Variant that cannot be iterated throws its own error ("Variant: You cannot iterate the type
    // '...'") and leaves the headers as they were.
    void fromDto(const Variant& dto);

    // The same names in the same spelling, with the same values, in any order.
    friend bool operator==(const Headers& a, const Headers& b) { return equal(a, b); }
    static bool equal(const Headers& a, const Headers& b);

    // The case-insensitive comparison and hash of names.
    static bool sameName(std::string_view a, std::string_view b) noexcept;
    static std::size_t hashName(std::string_view name) noexcept;

private:
    struct Entry {
        std::uint32_t nameOffset;
        std::uint32_t nameSize;
        std::uint32_t valueOffset;
        std::uint32_t valueSize;
    };
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);
    static constexpr std::size_t linearLimit = 16;

    std::string_view nameOf(const Entry& entry) const noexcept {
        return {m_text.data() + entry.nameOffset, entry.nameSize};
    }
    std::string_view valueOf(const Entry& entry) const noexcept {
        return {m_text.data() + entry.valueOffset, entry.valueSize};
    }
    std::size_t indexOf(std::string_view name) const noexcept;
    void rebuildIndex();
    void indexEntry(std::size_t entry);
    void compact();
    void checkRoom(std::size_t added) const;
    Headers& setInteger(std::string_view name, std::int64_t value);
    std::int64_t getInteger(std::string_view name, std::int64_t defaultValue) const;

    std::string m_text;                 // names and values, back to back
    std::vector<Entry> m_entries;       // in order of first insertion
    std::vector<std::uint32_t> m_index; // open addressing: entry + 1, 0 free; empty up to linearLimit
    std::size_t m_garbage = 0;          // bytes of m_text no entry uses any more

    friend class const_iterator;
};

class Headers::const_iterator {
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Headers::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;
    struct pointer {
        value_type pair;
        const value_type* operator->() const noexcept { return &pair; }
    };

    const_iterator() noexcept = default;
    value_type operator*() const noexcept {
        return {m_headers->nameOf(*m_entry), m_headers->valueOf(*m_entry)};
    }
    pointer operator->() const noexcept { return {**this}; }
    const_iterator& operator++() noexcept {
        ++m_entry;
        return *this;
    }
    const_iterator operator++(int) noexcept {
        const_iterator before = *this;
        ++m_entry;
        return before;
    }
    friend bool operator==(const const_iterator& a, const const_iterator& b) noexcept {
        return a.m_entry == b.m_entry;
    }

private:
    friend class Headers;
    const_iterator(const Headers* headers, const Entry* entry) noexcept
        : m_headers(headers), m_entry(entry) {}

    const Headers* m_headers = nullptr;
    const Entry* m_entry = nullptr;
};

inline Headers::const_iterator Headers::begin() const noexcept {
    return {this, m_entries.data()};
}

inline Headers::const_iterator Headers::end() const noexcept {
    return {this, m_entries.data() + m_entries.size()};
}

} // namespace Zel::Net::Http
