#include <Zel/ArgumentException.h>
#include <Zel/Iso8601.h>
#include <cstdio>
#include <limits>

namespace Zel::Iso8601 {

namespace {

using namespace std::chrono;

class Cursor {
public:
    Cursor(std::string_view text, const char* what) : m_text(text), m_what(what) {}

    bool atEnd() const { return m_pos >= m_text.size(); }
    char peek() const { return atEnd() ? '\0' : m_text[m_pos]; }
    bool take(char c) {
        if (peek() != c) return false;
        ++m_pos;
        return true;
    }
    bool isDigit() const { return peek() >= '0' && peek() <= '9'; }
    std::size_t position() const { return m_pos; }

    // Exactly `count` digits.
    int digits(int count) {
        int value = 0;
        for (int i = 0; i < count; ++i) {
            if (!isDigit()) fail();
            value = value * 10 + (m_text[m_pos++] - '0');
        }
        return value;
    }

    // A fraction after '.' or ',' as nanoseconds; digits past the ninth are dropped.
    std::int64_t fraction() {
        if (!isDigit()) fail();
        std::int64_t value = 0;
        int count = 0;
        for (; isDigit(); ++m_pos, ++count) {
            if (count < 9) value = value * 10 + (m_text[m_pos] - '0');
        }
        for (; count < 9; ++count)
            value *= 10;
        return value;
    }

    [[noreturn]] void fail() const { failAt(m_pos); }
    [[noreturn]] void failAt(std::size_t position) const {
        throw ArgumentException(std::string("Invalid ISO 8601 ") + m_what + " | text=" + std::string(m_text) +
                                " | position=" + std::to_string(position));
    }

private:
    std::string_view m_text;
    const char* m_what;
    std::size_t m_pos = 0;
};

void appendPadded(std::string& out, std::int64_t value, int width) {
    const std::string digits = std::to_string(value);
    if (static_cast<int>(digits.size()) < width)
        out.append(static_cast<std::size_t>(width) - digits.size(), '0');
    out += digits;
}

// `fraction` has `width` digits (6 for microseconds, 9 for nanoseconds).
void appendFraction(std::string& out, std::int64_t fraction, int width, int fractionDigits) {
    if (fractionDigits == 0 || (fractionDigits < 0 && fraction == 0)) return;
    std::string digits;
    appendPadded(digits, fraction, width);
    if (fractionDigits < 0) {
        while (digits.back() == '0')
            digits.pop_back();
    } else {
        digits.resize(static_cast<std::size_t>(std::min(fractionDigits, width)));
    }
    out += '.';
    out += digits;
}

} // namespace

DateTimeText parse(std::string_view text) {
    Cursor in(text, "date-time");
    int year = 0;
    if (in.peek() == '+' || in.peek() == '-') {
        const bool negative = in.take('-') || !in.take('+');
        year = in.digits(6) * (negative ? -1 : 1);
    } else {
        year = in.digits(4);
    }
    const bool extended = in.take('-');
    const std::size_t monthAt = in.position();
    const int month = in.digits(2);
    if (extended && !in.take('-')) in.fail();
    const std::size_t dayAt = in.position();
    const int day = in.digits(2);
    if (month < 1 || month > 12) in.failAt(monthAt);
    const year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                              std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok()) in.failAt(dayAt);

    DateTimeText result;
    microseconds timeOfDay{0};
    if (in.take('T') || in.take('t') || in.take(' ')) {
        result.hasTime = true;
        const std::size_t hourAt = in.position();
        const int hour = in.digits(2);
        if (hour > 23) in.failAt(hourAt);
        timeOfDay = hours(hour);
        microseconds unit = hours(1);
        const bool timeExtended = in.peek() == ':';
        for (int field = 0; field < 2; ++field) {
            if (timeExtended ? !in.take(':') : !in.isDigit()) break;
            const std::size_t at = in.position();
            const int value = in.digits(2);
            if (value > 59) in.failAt(at);
            unit = field == 0 ? microseconds(minutes(1)) : microseconds(seconds(1));
            timeOfDay += unit * value;
        }
        if (in.take('.') || in.take(','))
            timeOfDay += microseconds(in.fraction() * unit.count() / 1000000000); // below 2^63 for hours
        if (in.take('Z') || in.take('z')) {
            result.offset = seconds(0);
        } else if (in.peek() == '+' || in.peek() == '-') {
            const int sign = in.take('-') ? -1 : (in.take('+'), 1);
            const std::size_t offsetAt = in.position();
            const int offsetHours = in.digits(2);
            int offsetMinutes = 0;
            if (in.take(':') || in.isDigit()) offsetMinutes = in.digits(2);
            if (offsetHours > 23 || offsetMinutes > 59) in.failAt(offsetAt);
            result.offset = seconds(sign * (offsetHours * 3600 + offsetMinutes * 60));
        }
    }
    if (!in.atEnd()) in.fail();
    result.local = LocalTime(local_days(date).time_since_epoch() + timeOfDay);
    return result;
}

SysTime parseInstant(std::string_view text) {
    const auto parsed = parse(text);
    if (!parsed.offset)
        throw ArgumentException("ISO 8601 date-time has no offset | text=" + std::string(text));
    return SysTime(parsed.local.time_since_epoch() - *parsed.offset);
}

SysTime parseInstant(std::string_view text, const TimeZone& zone, LocalTimeChoice choice) {
    const auto parsed = parse(text);
    if (parsed.offset) return SysTime(parsed.local.time_since_epoch() - *parsed.offset);
    const auto whole = floor<seconds>(parsed.local);
    return SysTime(zone.toUtc(whole, choice).time_since_epoch() + (parsed.local - whole));
}

std::string format(LocalTime local, std::optional<std::chrono::seconds> offset, int fractionDigits) {
    const auto day = floor<days>(local);
    const year_month_day date{day};
    const hh_mm_ss<microseconds> time{local - day};
    std::string out;
    out.reserve(36);
    const int year = static_cast<int>(date.year());
    if (year < 0 || year > 9999) {
        out += year < 0 ? '-' : '+';
        appendPadded(out, year < 0 ? -static_cast<std::int64_t>(year) : year, 6);
    } else {
        appendPadded(out, year, 4);
    }
    out += '-';
    appendPadded(out, static_cast<unsigned>(date.month()), 2);
    out += '-';
    appendPadded(out, static_cast<unsigned>(date.day()), 2);
    out += 'T';
    appendPadded(out, time.hours().count(), 2);
    out += ':';
    appendPadded(out, time.minutes().count(), 2);
    out += ':';
    appendPadded(out, time.seconds().count(), 2);
    appendFraction(out, time.subseconds().count(), 6, fractionDigits);
    if (offset) {
        if (offset->count() == 0) {
            out += 'Z';
        } else {
            const auto magnitude = offset->count() < 0 ? -offset->count() : offset->count();
            out += offset->count() < 0 ? '-' : '+';
            appendPadded(out, magnitude / 3600, 2);
            out += ':';
            appendPadded(out, magnitude / 60 % 60, 2);
        }
    }
    return out;
}

std::string format(SysTime instant, int fractionDigits) {
    return format(LocalTime(instant.time_since_epoch()), seconds(0), fractionDigits);
}

std::string format(SysTime instant, const TimeZone& zone, int fractionDigits) {
    const auto offset = zone.offsetAt(floor<seconds>(instant));
    return format(LocalTime(instant.time_since_epoch() + offset), offset, fractionDigits);
}

std::string formatDate(Date date) {
    std::string out;
    appendPadded(out, date.year(), 4);
    out += '-';
    appendPadded(out, date.month(), 2);
    out += '-';
    appendPadded(out, date.day(), 2);
    return out;
}

Date parseDate(std::string_view text) {
    const auto parsed = parse(text);
    if (parsed.hasTime) Cursor(text, "date").failAt(10);
    const year_month_day date{floor<days>(parsed.local)};
    const int year = static_cast<int>(date.year());
    if (year < 0 || year > 65535) Cursor(text, "date").failAt(0);
    return Date(year, static_cast<int>(static_cast<unsigned>(date.month())),
                static_cast<int>(static_cast<unsigned>(date.day())));
}

std::chrono::nanoseconds parseDuration(std::string_view text) {
    Cursor in(text, "duration");
    const bool negative = in.take('-') || (in.take('+'), false);
    if (!in.take('P')) in.fail();
    constexpr auto maximum = std::numeric_limits<std::int64_t>::max();
    std::int64_t total = 0;
    bool inTime = false;
    bool any = false;
    // Units in the order they must appear: date part, then time part.
    std::string_view dateUnits = "WD";
    std::string_view timeUnits = "HMS";
    for (;;) {
        if (in.atEnd()) break;
        if (!inTime && in.take('T')) {
            inTime = true;
            if (in.atEnd()) in.fail();
            continue;
        }
        const std::size_t numberAt = in.position();
        if (!in.isDigit()) in.fail();
        std::int64_t value = 0;
        while (in.isDigit()) {
            const int digit = in.peek() - '0';
            if (value > (maximum - digit) / 10) in.failAt(numberAt);
            value = value * 10 + digit;
            in.take(in.peek());
        }
        std::int64_t fractionNanoseconds = 0;
        const bool hasFraction = in.peek() == '.' || in.peek() == ',';
        if (hasFraction) {
            in.take(in.peek());
            fractionNanoseconds = in.fraction();
        }
        const char unit = in.peek();
        if (!inTime && (unit == 'Y' || unit == 'M')) {
            throw ArgumentException("ISO 8601 duration with years or months has no fixed length | text=" +
                                    std::string(text));
        }
        std::string_view& allowed = inTime ? timeUnits : dateUnits;
        const auto found = allowed.find(unit);
        if (unit == '\0' || found == std::string_view::npos || (hasFraction && unit != 'S')) in.fail();
        allowed.remove_prefix(found + 1); // later units only, each once
        in.take(unit);
        std::int64_t unitNanoseconds = 0;
        switch (unit) {
        case 'W':
            unitNanoseconds = 604800'000000000;
            break;
        case 'D':
            unitNanoseconds = 86400'000000000;
            break;
        case 'H':
            unitNanoseconds = 3600'000000000;
            break;
        case 'M':
            unitNanoseconds = 60'000000000;
            break;
        default:
            unitNanoseconds = 1'000000000;
            break;
        }
        if (value > (maximum - fractionNanoseconds - total) / unitNanoseconds) in.failAt(numberAt);
        total += value * unitNanoseconds + fractionNanoseconds;
        any = true;
        if (hasFraction && !in.atEnd()) in.fail();
    }
    if (!any) in.fail();
    return nanoseconds(negative ? -total : total);
}

std::string formatDuration(std::chrono::nanoseconds duration) {
    if (duration.count() == 0) return "PT0S";
    std::string out;
    // The magnitude as unsigned: the most negative count has no positive twin.
    std::uint64_t rest = duration.count() < 0 ? 0 - static_cast<std::uint64_t>(duration.count())
                                              : static_cast<std::uint64_t>(duration.count());
    if (duration.count() < 0) out += '-';
    out += 'P';
    const std::uint64_t dayCount = rest / 86400'000000000ull;
    rest %= 86400'000000000ull;
    if (dayCount) out += std::to_string(dayCount) + "D";
    if (rest == 0) return out;
    out += 'T';
    const std::uint64_t hourCount = rest / 3600'000000000ull;
    rest %= 3600'000000000ull;
    const std::uint64_t minuteCount = rest / 60'000000000ull;
    rest %= 60'000000000ull;
    if (hourCount) out += std::to_string(hourCount) + "H";
    if (minuteCount) out += std::to_string(minuteCount) + "M";
    if (rest) {
        out += std::to_string(rest / 1'000000000ull);
        appendFraction(out, static_cast<std::int64_t>(rest % 1'000000000ull), 9, -1);
        out += 'S';
    }
    return out;
}

} // namespace Zel::Iso8601
