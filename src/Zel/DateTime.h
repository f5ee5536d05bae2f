#pragma once

#include <Zel/Date.h>
#include <Zel/Time.h>

#include <chrono>
#include <string_view>

namespace Zel {

// A timestamp as two packed words: the date word, then the time word (see Date and Time).
// The null DateTime is 0100-01-01 00:00:00; anything at or before it with a zero time word counts
// as null, so zeroed storage reads as null too.
class ZEL_API DateTime {
public:
    static constexpr std::uint32_t nullDateWord = 0x00640101u;

    constexpr DateTime() noexcept = default;
    constexpr DateTime(Date date, Time time) noexcept
        : m_date(date.word()), m_time(time.isNull() ? 0 : time.word()) {}

    static constexpr DateTime fromWords(std::uint32_t dateWord, std::uint32_t timeWord) noexcept {
        DateTime value;
        value.m_date = dateWord;
        value.m_time = timeWord;
        return value;
    }

    constexpr std::uint32_t dateWord() const noexcept { return m_date; }
    constexpr std::uint32_t timeWord() const noexcept { return m_time; }
    constexpr bool isNull() const noexcept { return m_date <= nullDateWord && m_time == 0; }

    constexpr Date date() const noexcept { return Date::fromWord(m_date); }
    // The null Time for a null DateTime.
    constexpr Time time() const noexcept { return isNull() ? Time() : Time::fromWord(m_time); }

    constexpr int year() const noexcept { return static_cast<int>(m_date >> 16); }
    constexpr int month() const noexcept { return static_cast<int>(m_date >> 8 & 0xFF); }
    constexpr int day() const noexcept { return static_cast<int>(m_date & 0xFF); }
    constexpr int hour() const noexcept { return static_cast<int>(m_time >> 16 & 0xFF); }
    constexpr int minute() const noexcept { return static_cast<int>(m_time >> 8 & 0xFF); }
    constexpr int second() const noexcept { return static_cast<int>(m_time & 0xFF); }

    // Years 100..2038, months 1..12, days 1..31; false (and no change) otherwise.
    bool setDate(int year, int month, int day) noexcept;
    // Hour at most 23, minute and second at most 59; false (and no change) otherwise.
    bool setTime(int hour, int minute, int second) noexcept;

    // Reads "Y-M-D h:m:s" as six integers, packed without range checks; fewer than six numbers throw
    // ArgumentException "Invalid SQL date-time format: %s".
    void setFromSql(std::string_view text);

    // Pattern letters: Y year, y two-digit year, M month, D day, H hour, m minute, S second (all but
    // Y zero-padded to two digits); every other character is copied as it stands.
    std::string format(std::string_view pattern) const;

    // "%d-%02d-%02d %02d:%02d:%02d"
    std::string toString() const;

    // Between the packed form and std::chrono time points, which count seconds since
    // 1970-01-01 00:00:00 (as UTC for sys_seconds, as a wall-clock reading for local_seconds).
    // A null DateTime converts like 0100-01-01 00:00:00; time points outside years 0..65535 give
    // the null DateTime.
    static DateTime fromSysSeconds(std::chrono::sys_seconds instant) noexcept;
    static DateTime fromLocalSeconds(std::chrono::local_seconds local) noexcept;
    std::chrono::sys_seconds toSysSeconds() const noexcept;
    std::chrono::local_seconds toLocalSeconds() const noexcept;

    constexpr friend bool operator==(DateTime a, DateTime b) noexcept = default;
    constexpr friend auto operator<=>(DateTime a, DateTime b) noexcept = default;

private:
    std::uint32_t m_date = nullDateWord;
    std::uint32_t m_time = 0;
};

} // namespace Zel
