#pragma once

#include <Zel/Export.h>

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace Zel {

// A version number of one to four non-negative components: major.minor[.build[.revision]].
// Components that were not given read as 0; printing shows the components given.
//
// Compared component by component, missing ones counting as 0 (1.2 == 1.2.0).
class ZEL_API Version {
public:
    static constexpr int maxComponents = 4;

    // No components: empty(), prints as the empty string, compares like 0.
    Version() noexcept = default;
    Version(std::int32_t major, std::int32_t minor) noexcept;
    Version(std::int32_t major, std::int32_t minor, std::int32_t build) noexcept;
    Version(std::int32_t major, std::int32_t minor, std::int32_t build, std::int32_t revision) noexcept;

    // Decimal components joined by `separator`, each fitting a signed 32-bit integer. Anything
    // else throws ArgumentException "Version: invalid text | text=..." (the text cut to 64 bytes).
    static Version parse(std::string_view text, char separator = '.');

    std::int32_t major() const noexcept { return m_components[0]; }
    std::int32_t minor() const noexcept { return m_components[1]; }
    std::int32_t build() const noexcept { return m_components[2]; }
    std::int32_t revision() const noexcept { return m_components[3]; }
    // 0 for an index at or past size().
    std::int32_t component(int index) const noexcept;
    int size() const noexcept { return m_size; }
    bool empty() const noexcept { return m_size == 0; }

    std::string toString(char separator = '.') const;

    friend bool operator==(const Version& a, const Version& b) noexcept {
        return a.m_components == b.m_components;
    }
    friend std::strong_ordering operator<=>(const Version& a, const Version& b) noexcept {
        return a.m_components <=> b.m_components;
    }

private:
    std::array<std::int32_t, maxComponents> m_components{};
    int m_size = 0;
};

} // namespace Zel
