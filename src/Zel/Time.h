#pragma once

#include <Zel/Export.h>

#include <compare>
#include <cstdint>
#include <string>

namespace Zel {

// A time of day packed in one word: hour << 16 | minute << 8 | second. 0xFFFFFFFF is the null
// time, so that midnight (word 0) stays a real value.
class ZEL_API Time {
public:
    static constexpr std::uint32_t nullWord = 0xFFFFFFFFu;

    constexpr Time() noexcept = default;
    constexpr Time(int hour, int minute, int second) noexcept
        : m_word(static_cast<std::uint32_t>(hour & 0xFF) << 16 | static_cast<std::uint32_t>(minute & 0xFF) << 8 |
                 static_cast<std::uint32_t>(second & 0xFF)) {}

    static constexpr Time fromWord(std::uint32_t word) noexcept {
        Time time;
        time.m_word = word;
        return time;
    }

    constexpr std::uint32_t word() const noexcept { return m_word; }
    constexpr bool isNull() const noexcept { return m_word == nullWord; }
    constexpr int hour() const noexcept { return static_cast<int>(m_word >> 16 & 0xFF); }
    constexpr int minute() const noexcept { return static_cast<int>(m_word >> 8 & 0xFF); }
    constexpr int second() const noexcept { return static_cast<int>(m_word & 0xFF); }

    // "%02d:%02d:%02d"
    std::string toString() const;

    constexpr friend bool operator==(Time a, Time b) noexcept = default;
    constexpr friend auto operator<=>(Time a, Time b) noexcept = default;

private:
    std::uint32_t m_word = nullWord;
};

} // namespace Zel
