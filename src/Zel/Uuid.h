#pragma once

#include <Zel/Export.h>
#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Zel {

class Variant;

// A 128-bit universally unique identifier, held as its 16 bytes in network order.
// The default value is the nil UUID (all zero). Values compare byte-wise, which for version 7 ids
// is the order of creation.
//
// Both generators draw from the operating system's CSPRNG and are safe to call from any thread.
// timeOrdered() ids are strictly increasing within the process, also when several fall in the
// same millisecond or the system clock steps back: the timestamp then stays at the highest value
// already handed out and a 12-bit counter in the following bits advances instead.
class ZEL_API Uuid {
public:
    using Bytes = std::array<std::uint8_t, 16>;

    constexpr Uuid() noexcept = default;
    constexpr explicit Uuid(const Bytes& bytes) noexcept : m_bytes(bytes) {}

    // Version 4: 122 random bits.
    static Uuid random();
    // Version 7: 48-bit Unix time in milliseconds, 12-bit counter, 62 random bits.
    static Uuid timeOrdered();

    // Accepts the canonical 8-4-4-4-12 form in either case, the same enclosed in braces, with a
    // "urn:uuid:" prefix, or as 32 hex digits without hyphens. Anything else throws
    // ArgumentException "Invalid UUID | text=..." (the text cut to 64 bytes).
    static Uuid parse(std::string_view text);
    static std::optional<Uuid> tryParse(std::string_view text) noexcept;

    // A string Variant is parsed as above; a null Variant gives the nil UUID; other types throw
    // the Variant's invalid-operation exception.
    static Uuid fromVariant(const Variant& value);
    // The canonical text as a string Variant.
    Variant toVariant() const;

    // Canonical lower-case form: "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx".
    std::string toString() const;

    const Bytes& bytes() const noexcept { return m_bytes; }
    bool isNil() const noexcept { return m_bytes == Bytes{}; }
    // The version nibble (4 for random(), 7 for timeOrdered()).
    int version() const noexcept { return m_bytes[6] >> 4; }
    // For version 7: the Unix time in milliseconds the id was made at (or the counter overflowed into).
    std::int64_t unixMilliseconds() const noexcept;

    friend bool operator==(const Uuid&, const Uuid&) noexcept = default;
    friend std::strong_ordering operator<=>(const Uuid&, const Uuid&) noexcept = default;

private:
    Bytes m_bytes{};
};

} // namespace Zel

template <>
struct std::hash<Zel::Uuid> {
    std::size_t operator()(const Zel::Uuid& uuid) const noexcept {
        // The bytes are random or time-and-random: folding two words is as good as a real hash.
        std::uint64_t high = 0;
        std::uint64_t low = 0;
        for (int i = 0; i < 8; ++i)
            high = high << 8 | uuid.bytes()[i];
        for (int i = 8; i < 16; ++i)
            low = low << 8 | uuid.bytes()[i];
        return static_cast<std::size_t>(high ^ (low * 0x9E3779B97F4A7C15ull));
    }
};
