#include <Zel/ArgumentException.h>
#include <Zel/TimeZone.h>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

namespace Zel {

namespace Detail {

// One day of a POSIX TZ rule: "Jn" (1..365, February 29th never counted), "n" (0..365) or
// "Mm.w.d" (weekday d of week w of month m; week 5 is the last), with the local time of the change.
struct RuleDay {
    enum class Kind { Julian1, Julian0, MonthWeekDay } kind = Kind::MonthWeekDay;
    int number = 0;
    int month = 0;
    int week = 0;
    int weekday = 0;
    std::int32_t time = 7200;
};

struct PosixRule {
    std::string standardName;
    std::string dstName;
    std::int32_t standardOffset = 0; // seconds east of UTC
    std::int32_t dstOffset = 0;
    bool hasDst = false;
    RuleDay start;
    RuleDay end;
};

struct LocalType {
    std::int32_t offset = 0;
    bool isDst = false;
    std::string abbreviation;
};

struct ZoneData {
    std::string name;
    std::vector<std::int64_t> transitions;    // UTC seconds, ascending
    std::vector<std::uint8_t> transitionType; // index into types, one per transition
    std::vector<LocalType> types;
    std::optional<PosixRule> rule; // for instants at or after the last transition
};

} // namespace Detail

namespace {

using Detail::LocalType;
using Detail::PosixRule;
using Detail::RuleDay;
using Detail::ZoneData;

std::string offsetName(std::int32_t offset) {
    const char sign = offset < 0 ? '-' : '+';
    const std::int32_t magnitude = offset < 0 ? -offset : offset;
    char text[16];
    std::snprintf(text, sizeof text, "%c%02d:%02d", sign, magnitude / 3600, magnitude / 60 % 60);
    return text;
}

// --- POSIX TZ rules ------------------------------------------------------------------------------

class RuleParser {
public:
    explicit RuleParser(std::string_view text) : m_text(text) {}

    std::optional<PosixRule> parse() {
        PosixRule rule;
        std::int32_t offset = 0;
        if (!name(rule.standardName) || !posixOffset(offset)) return std::nullopt;
        rule.standardOffset = -offset; // POSIX counts west of Greenwich as positive
        if (atEnd()) return rule;
        if (!name(rule.dstName)) return std::nullopt;
        rule.hasDst = true;
        rule.dstOffset = rule.standardOffset + 3600;
        if (!atEnd() && peek() != ',') {
            if (!posixOffset(offset)) return std::nullopt;
            rule.dstOffset = -offset;
        }
        if (atEnd()) {
            // No dates given: POSIX leaves them to the implementation; the US rules are the custom.
            rule.start = {RuleDay::Kind::MonthWeekDay, 0, 3, 2, 0, 7200};
            rule.end = {RuleDay::Kind::MonthWeekDay, 0, 11, 1, 0, 7200};
            return rule;
        }
        if (!expect(',') || !day(rule.start) || !expect(',') || !day(rule.end) || !atEnd())
            return std::nullopt;
        return rule;
    }

private:
    bool atEnd() const { return m_pos >= m_text.size(); }
    char peek() const { return atEnd() ? '\0' : m_text[m_pos]; }
    bool expect(char c) {
        if (peek() != c) return false;
        ++m_pos;
        return true;
    }

    bool name(std::string& out) {
        const std::size_t start = m_pos;
        if (expect('<')) {
            const auto close = m_text.find('>', m_pos);
            if (close == std::string_view::npos || close == m_pos) return false;
            out = std::string(m_text.substr(m_pos, close - m_pos));
            m_pos = close + 1;
            return true;
        }
        while (!atEnd() && ((peek() >= 'A' && peek() <= 'Z') || (peek() >= 'a' && peek() <= 'z')))
            ++m_pos;
        out = std::string(m_text.substr(start, m_pos - start));
        return out.size() >= 3;
    }

    bool number(int& out, int maxDigits) {
        const std::size_t start = m_pos;
        out = 0;
        while (!atEnd() && peek() >= '0' && peek() <= '9' &&
               m_pos - start < static_cast<std::size_t>(maxDigits)) {
            out = out * 10 + (peek() - '0');
            ++m_pos;
        }
        return m_pos > start;
    }

    // [+-]hh[:mm[:ss]], hours up to 167 as the extended rules of TZif version 3 allow.
    bool posixOffset(std::int32_t& out) {
        const bool negative = peek() == '-';
        if (peek() == '+' || peek() == '-') ++m_pos;
        int hours = 0;
        int minutes = 0;
        int seconds = 0;
        if (!number(hours, 3) || hours > 167) return false;
        if (expect(':') && (!number(minutes, 2) || minutes > 59)) return false;
        if (expect(':') && (!number(seconds, 2) || seconds > 59)) return false;
        out = (hours * 3600 + minutes * 60 + seconds) * (negative ? -1 : 1);
        return true;
    }

    bool day(RuleDay& out) {
        if (expect('J')) {
            out.kind = RuleDay::Kind::Julian1;
            if (!number(out.number, 3) || out.number < 1 || out.number > 365) return false;
        } else if (expect('M')) {
            out.kind = RuleDay::Kind::MonthWeekDay;
            if (!number(out.month, 2) || out.month < 1 || out.month > 12 || !expect('.') ||
                !number(out.week, 1) || out.week < 1 || out.week > 5 || !expect('.') ||
                !number(out.weekday, 1) || out.weekday > 6)
                return false;
        } else {
            out.kind = RuleDay::Kind::Julian0;
            if (!number(out.number, 3) || out.number > 365) return false;
        }
        out.time = 7200;
        if (expect('/')) return posixOffset(out.time);
        return true;
    }

    std::string_view m_text;
    std::size_t m_pos = 0;
};

bool isLeap(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// Days since 1970-01-01 of the rule's day in `year`.
std::int64_t ruleDay(const RuleDay& rule, int year) {
    using namespace std::chrono;
    const auto january1 = sys_days{std::chrono::year(year) / January / 1}.time_since_epoch().count();
    switch (rule.kind) {
    case RuleDay::Kind::Julian1:
        return january1 + rule.number - 1 + (isLeap(year) && rule.number >= 60 ? 1 : 0);
    case RuleDay::Kind::Julian0:
        return january1 + rule.number;
    case RuleDay::Kind::MonthWeekDay:
        break;
    }
    const auto monthStart =
        sys_days{std::chrono::year(year) / std::chrono::month(static_cast<unsigned>(rule.month)) / 1};
    const int firstWeekday = static_cast<int>(weekday{monthStart}.c_encoding());
    int dayOfMonth = 1 + (rule.weekday - firstWeekday + 7) % 7 + (rule.week - 1) * 7;
    const auto length = static_cast<int>(static_cast<unsigned>(year_month_day_last{
        std::chrono::year(year) / std::chrono::month(static_cast<unsigned>(rule.month)) / last}
                                                                   .day()));
    while (dayOfMonth > length)
        dayOfMonth -= 7;
    return monthStart.time_since_epoch().count() + dayOfMonth - 1;
}

LocalType ruleAt(const PosixRule& rule, std::int64_t instant) {
    const LocalType standard{rule.standardOffset, false, rule.standardName};
    if (!rule.hasDst) return standard;
    using namespace std::chrono;
    const int year = static_cast<int>(
        year_month_day{floor<days>(sys_seconds{seconds{instant + rule.standardOffset}})}.year());
    // The start is given in standard time, the end in summer time.
    const std::int64_t start = ruleDay(rule.start, year) * 86400 + rule.start.time - rule.standardOffset;
    const std::int64_t end = ruleDay(rule.end, year) * 86400 + rule.end.time - rule.dstOffset;
    const bool dst = start < end ? (instant >= start && instant < end) : !(instant >= end && instant < start);
    return dst ? LocalType{rule.dstOffset, true, rule.dstName} : standard;
}

// --- TZif files (RFC 8536) -----------------------------------------------------------------------

class TzifReader {
public:
    TzifReader(const std::string& bytes, std::string_view zone) : m_bytes(bytes), m_zone(zone) {}

    ZoneData read() {
        ZoneData zone;
        zone.name = std::string(m_zone);
        auto header = readHeader();
        if (header.version >= 2) {
            // Skip the 32-bit block: the 64-bit one after it covers everything.
            skip(header.blockSize(4));
            header = readHeader();
            readBlock(zone, header, 8);
            readFooter(zone);
        } else {
            readBlock(zone, header, 4);
        }
        if (zone.types.empty()) fail();
        return zone;
    }

private:
    struct Header {
        int version = 0;
        std::uint32_t isUtCount, isStdCount, leapCount, timeCount, typeCount, charCount;
        std::size_t blockSize(std::size_t timeSize) const {
            return timeCount * timeSize + timeCount + typeCount * 6 + charCount + leapCount * (timeSize + 4) +
                   isStdCount + isUtCount;
        }
    };

    [[noreturn]] void fail() const {
        throw ArgumentException("Invalid time zone data | zone=" + std::string(m_zone));
    }
    void need(std::size_t count) const {
        if (m_bytes.size() - m_pos < count) fail();
    }
    void skip(std::size_t count) {
        need(count);
        m_pos += count;
    }
    std::uint64_t bigEndian(std::size_t size) {
        need(size);
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i)
            value = value << 8 | static_cast<unsigned char>(m_bytes[m_pos++]);
        return value;
    }
    std::int64_t signedValue(std::size_t size) {
        const std::uint64_t raw = bigEndian(size);
        if (size == 4) return static_cast<std::int32_t>(static_cast<std::uint32_t>(raw));
        return static_cast<std::int64_t>(raw);
    }

    Header readHeader() {
        need(44);
        if (m_bytes.compare(m_pos, 4, "TZif") != 0) fail();
        Header header;
        const char version = m_bytes[m_pos + 4];
        header.version = version == '\0' ? 1 : version - '0';
        if (header.version < 1 || header.version > 9) fail();
        m_pos += 20;
        header.isUtCount = static_cast<std::uint32_t>(bigEndian(4));
        header.isStdCount = static_cast<std::uint32_t>(bigEndian(4));
        header.leapCount = static_cast<std::uint32_t>(bigEndian(4));
        header.timeCount = static_cast<std::uint32_t>(bigEndian(4));
        header.typeCount = static_cast<std::uint32_t>(bigEndian(4));
        header.charCount = static_cast<std::uint32_t>(bigEndian(4));
        if (header.typeCount == 0 || header.typeCount > 256) fail();
        return header;
    }

    void readBlock(ZoneData& zone, const Header& header, std::size_t timeSize) {
        need(header.blockSize(timeSize));
        zone.transitions.resize(header.timeCount);
        for (auto& transition : zone.transitions)
            transition = signedValue(timeSize);
        zone.transitionType.resize(header.timeCount);
        for (auto& type : zone.transitionType) {
            type = static_cast<std::uint8_t>(bigEndian(1));
            if (type >= header.typeCount) fail();
        }
        if (!std::is_sorted(zone.transitions.begin(), zone.transitions.end())) fail();
        struct RawType {
            std::int32_t offset;
            bool isDst;
            std::uint8_t abbreviationIndex;
        };
        std::vector<RawType> raw(header.typeCount);
        for (auto& type : raw) {
            type.offset = static_cast<std::int32_t>(signedValue(4));
            type.isDst = bigEndian(1) != 0;
            type.abbreviationIndex = static_cast<std::uint8_t>(bigEndian(1));
        }
        const std::string characters = m_bytes.substr(m_pos, header.charCount);
        m_pos += header.charCount;
        for (const auto& type : raw) {
            if (type.abbreviationIndex >= characters.size()) fail();
            zone.types.push_back(
                {type.offset, type.isDst, std::string(characters.c_str() + type.abbreviationIndex)});
        }
        // Leap-second records and the standard/wall and UT/local indicators: only for POSIX-rule
        // generation from old files, not needed for lookups.
        skip(header.leapCount * (timeSize + 4) + header.isStdCount + header.isUtCount);
    }

    void readFooter(ZoneData& zone) {
        if (m_pos >= m_bytes.size() || m_bytes[m_pos] != '\n') return;
        const auto end = m_bytes.find('\n', m_pos + 1);
        if (end == std::string::npos) fail();
        const std::string_view text(m_bytes.data() + m_pos + 1, end - m_pos - 1);
        if (text.empty()) return;
        auto rule = RuleParser(text).parse();
        if (!rule) fail();
        zone.rule = std::move(rule);
    }

    const std::string& m_bytes;
    std::string_view m_zone;
    std::size_t m_pos = 0;
};

bool isSafeZoneName(std::string_view name) {
    if (name.empty() || name.size() > 255 || name.front() == '/' || name.find("..") != std::string_view::npos)
        return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '/' ||
               c == '_' || c == '-' || c == '+';
    });
}

std::optional<std::string> readFile(const std::string& path) {
    std::error_code error;
    // Directories open as streams on Linux and then fail while being read.
    if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) return std::nullopt;
    return bytes;
}

std::string zoneDirectory() {
    const char* directory = std::getenv("TZDIR");
    return directory && *directory ? directory : "/usr/share/zoneinfo";
}

std::shared_ptr<const ZoneData> makeFixed(std::string name, std::int32_t offset, std::string abbreviation) {
    auto zone = std::make_shared<ZoneData>();
    zone->name = std::move(name);
    zone->types.push_back({offset, false, std::move(abbreviation)});
    return zone;
}

const std::shared_ptr<const ZoneData>& utcData() {
    static const auto utc = makeFixed("UTC", 0, "UTC");
    return utc;
}

LocalType typeAt(const ZoneData& zone, std::int64_t instant) {
    if (zone.transitions.empty() || instant < zone.transitions.front()) {
        if (zone.transitions.empty() && zone.rule) return ruleAt(*zone.rule, instant);
        return zone.types.front();
    }
    const auto next = std::upper_bound(zone.transitions.begin(), zone.transitions.end(), instant);
    if (next == zone.transitions.end() && zone.rule) return ruleAt(*zone.rule, instant);
    return zone.types[zone.transitionType[static_cast<std::size_t>(next - zone.transitions.begin() - 1)]];
}

} // namespace

TimeZone::TimeZone() : m_data(utcData()) {}

TimeZone::TimeZone(std::shared_ptr<const Detail::ZoneData> data) noexcept : m_data(std::move(data)) {}

TimeZone TimeZone::utc() {
    return TimeZone();
}

TimeZone TimeZone::named(std::string_view name) {
    static std::mutex mutex;
    static std::unordered_map<std::string, std::shared_ptr<const ZoneData>> cache;
    const std::string key(name);
    {
        std::lock_guard lock(mutex);
        if (const auto found = cache.find(key); found != cache.end()) return TimeZone(found->second);
    }
    if (!isSafeZoneName(name)) throw ArgumentException("Unknown time zone | zone=" + key);
    const auto bytes = readFile(zoneDirectory() + "/" + key);
    if (!bytes) throw ArgumentException("Unknown time zone | zone=" + key);
    if (bytes->compare(0, 4, "TZif") != 0) throw ArgumentException("Unknown time zone | zone=" + key);
    auto data = std::make_shared<const ZoneData>(TzifReader(*bytes, key).read());
    std::lock_guard lock(mutex);
    return TimeZone(cache.emplace(key, std::move(data)).first->second);
}

TimeZone TimeZone::local() {
    if (const char* tz = std::getenv("TZ"); tz && *tz) {
        std::string_view value = tz;
        if (value.front() == ':') value.remove_prefix(1);
        try {
            return named(value);
        } catch (const ArgumentException&) {
        }
        try {
            return posixRule(value);
        } catch (const ArgumentException&) {
        }
    }
    if (const auto bytes = readFile("/etc/localtime"); bytes && bytes->compare(0, 4, "TZif") == 0) {
        try {
            return TimeZone(std::make_shared<const ZoneData>(TzifReader(*bytes, "localtime").read()));
        } catch (const ArgumentException&) {
        }
    }
    return utc();
}

TimeZone TimeZone::posixRule(std::string_view rule) {
    auto parsed = RuleParser(rule).parse();
    if (!parsed) throw ArgumentException("Invalid POSIX time zone rule | rule=" + std::string(rule));
    auto zone = std::make_shared<ZoneData>();
    zone->name = std::string(rule);
    zone->types.push_back({parsed->standardOffset, false, parsed->standardName});
    zone->rule = std::move(parsed);
    return TimeZone(std::move(zone));
}

TimeZone TimeZone::fixed(std::chrono::seconds offset) {
    const auto seconds = static_cast<std::int32_t>(offset.count());
    return TimeZone(makeFixed(offsetName(seconds), seconds, offsetName(seconds)));
}

const std::string& TimeZone::name() const noexcept {
    return m_data->name;
}

TimeZone::Period TimeZone::periodAt(std::chrono::sys_seconds instant) const {
    auto type = typeAt(*m_data, instant.time_since_epoch().count());
    return {std::chrono::seconds(type.offset), type.isDst, std::move(type.abbreviation)};
}

std::chrono::seconds TimeZone::offsetAt(std::chrono::sys_seconds instant) const {
    return std::chrono::seconds(typeAt(*m_data, instant.time_since_epoch().count()).offset);
}

std::chrono::local_seconds TimeZone::toLocal(std::chrono::sys_seconds instant) const {
    return std::chrono::local_seconds(instant.time_since_epoch() + offsetAt(instant));
}

TimeZone::Resolution TimeZone::resolve(std::chrono::local_seconds local) const {
    using std::chrono::sys_seconds;
    const sys_seconds asUtc(local.time_since_epoch());
    // Any transition near `local` lies within a day of it: the offsets a day before and after are
    // the two candidates, and a candidate fits when reading `local` with it lands in its own period.
    const auto before = offsetAt(asUtc - std::chrono::days(1));
    const auto after = offsetAt(asUtc + std::chrono::days(1));
    const sys_seconds withBefore = asUtc - before;
    const sys_seconds withAfter = asUtc - after;
    const bool beforeFits = offsetAt(withBefore) == before;
    const bool afterFits = offsetAt(withAfter) == after;
    Resolution result;
    result.earlier = std::min(withBefore, withAfter);
    result.later = std::max(withBefore, withAfter);
    if (before == after || (beforeFits != afterFits)) {
        result.kind = Resolution::Kind::Unique;
        result.earlier = result.later = (before == after || beforeFits) ? withBefore : withAfter;
    } else {
        result.kind = beforeFits ? Resolution::Kind::Overlap : Resolution::Kind::Gap;
    }
    return result;
}

std::chrono::sys_seconds TimeZone::toUtc(std::chrono::local_seconds local, LocalTimeChoice choice) const {
    const auto resolution = resolve(local);
    switch (resolution.kind) {
    case Resolution::Kind::Unique:
        return resolution.earlier;
    case Resolution::Kind::Gap:
        if (choice == LocalTimeChoice::Throw) {
            throw ArgumentException("Local time does not exist | zone=" + name() +
                                    " | time=" + DateTime::fromLocalSeconds(local).toString());
        }
        return choice == LocalTimeChoice::Earlier ? resolution.earlier : resolution.later;
    case Resolution::Kind::Overlap:
        if (choice == LocalTimeChoice::Throw) {
            throw ArgumentException("Local time is ambiguous | zone=" + name() +
                                    " | time=" + DateTime::fromLocalSeconds(local).toString());
        }
        return choice == LocalTimeChoice::Later ? resolution.later : resolution.earlier;
    }
    return resolution.earlier;
}

DateTime TimeZone::toLocal(const DateTime& utc) const {
    if (utc.isNull()) return utc;
    return DateTime::fromLocalSeconds(toLocal(utc.toSysSeconds()));
}

DateTime TimeZone::toUtc(const DateTime& local, LocalTimeChoice choice) const {
    if (local.isNull()) return local;
    return DateTime::fromSysSeconds(toUtc(local.toLocalSeconds(), choice));
}

} // namespace Zel
