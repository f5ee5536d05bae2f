#pragma once

#include <Zel/Export.h>

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace Zel {

// A calendar date packed in one word: year << 16 | month << 8 | day. The word 0 is the null date.
// Dates compare as whole words, which orders them chronologically.
class ZEL_API Date {
public:
    constexpr Date() noexcept = default;
    constexpr Date(int year, int month, int day) noexcept
        : m_word(static_cast<std::uint32_t>(year) << 16 | static_cast<std::uint32_t>(month & 0xFF) << 8 |
                 static_cast<std::uint32_t>(day & 0xFF)) {}

    static constexpr Date fromWord(std::uint32_t word) noexcept {
        Date date;
        date.m_word = word;
        return date;
    }

    constexpr std::uint32_t word() const noexcept { return m_word; }
    constexpr bool isNull() const noexcept { return m_word == 0; }
    constexpr int year() const noexcept { return static_cast<int>(m_word >> 16); }
    constexpr int month() const noexcept { return static_cast<int>(m_word >> 8 & 0xFF); }
    constexpr int day() const noexcept { return static_cast<int>(m_word & 0xFF); }

    // Reads "year-month-day". Numbers outside year 0..65535, month 1..12, day 1..31 give the null
    // date; text without three numbers throws ArgumentException "Invalid SQL date format: %s".
    void setFromSql(std::string_view text);

    // "%d-%02d-%02d"
    std::string toString() const;

    constexpr friend bool operator==(Date a, Date b) noexcept = default;
    constexpr friend auto operator<=>(Date a, Date b) noexcept = default;

private:
    std::uint32_t m_word = 0;
};

} // namespace Zel
