#include <Zel/ArgumentException.h>
#include <Zel/DateTime.h>

#include <charconv>
#include <cstdio>

namespace Zel {

bool DateTime::setDate(int year, int month, int day) noexcept {
    if (year < 100 || year > 2038 || month < 1 || month > 12 || day < 1 || day > 31) return false;
    m_date = Date(year, month, day).word();
    return true;
}

bool DateTime::setTime(int hour, int minute, int second) noexcept {
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) return false;
    m_time = Time(hour, minute, second).word();
    return true;
}

void DateTime::setFromSql(std::string_view text) {
    const std::string copy(text); // sscanf needs a terminated string
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (std::sscanf(copy.c_str(), "%d-%d-%d %d:%d:%d", &year, &month, &day, &hour, &minute, &second) != 6) {
        throw ArgumentException("Invalid SQL date-time format: " + copy);
    }
    m_date = Date(year, month, day).word();
    m_time = Time(hour, minute, second).word();
}

namespace {

void appendNumber(std::string& out, int value, int width) {
    char digits[16];
    auto [end, ec] = std::to_chars(digits, digits + sizeof digits, value);
    (void)ec;
    for (auto length = end - digits; length < width; ++length) out += '0';
    out.append(digits, end);
}

} // namespace

std::string DateTime::format(std::string_view pattern) const {
    std::string out;
    out.reserve(pattern.size() * 2);
    for (const char c : pattern) {
        switch (c) {
        case 'Y': appendNumber(out, year(), 1); break;
        case 'y': appendNumber(out, year() % 100, 2); break;
        case 'M': appendNumber(out, month(), 2); break;
        case 'D': appendNumber(out, day(), 2); break;
        case 'H': appendNumber(out, hour(), 2); break;
        case 'm': appendNumber(out, minute(), 2); break;
        case 'S': appendNumber(out, second(), 2); break;
        default: out += c; break;
        }
    }
    return out;
}

std::string DateTime::toString() const {
    return format("Y-M-D H:m:S");
}

DateTime DateTime::fromLocalSeconds(std::chrono::local_seconds local) noexcept {
    using namespace std::chrono;
    const auto day = floor<days>(local);
    const year_month_day date{day};
    const hh_mm_ss time{local - day};
    const int yearNumber = static_cast<int>(date.year());
    if (yearNumber < 0 || yearNumber > 65535) return DateTime();
    return DateTime(Date(yearNumber, static_cast<int>(static_cast<unsigned>(date.month())),
                         static_cast<int>(static_cast<unsigned>(date.day()))),
                    Time(static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                         static_cast<int>(time.seconds().count())));
}

DateTime DateTime::fromSysSeconds(std::chrono::sys_seconds instant) noexcept {
    return fromLocalSeconds(std::chrono::local_seconds(instant.time_since_epoch()));
}

std::chrono::local_seconds DateTime::toLocalSeconds() const noexcept {
    using namespace std::chrono;
    // Counting days from the first of the month lets the packed form's unchecked day run on into
    // the next month instead of failing.
    const auto first = local_days{std::chrono::year(year()) / std::chrono::month(static_cast<unsigned>(month())) / 1};
    return first + days(day() - 1) + hours(hour()) + minutes(minute()) + seconds(second());
}

std::chrono::sys_seconds DateTime::toSysSeconds() const noexcept {
    return std::chrono::sys_seconds(toLocalSeconds().time_since_epoch());
}

} // namespace Zel
