#include <Zel/Log/BaseSink.h>

#include <Zel/Log/Masking.h>
#include <Zel/Log/ThreadContext.h>

#include <charconv>
#include <cstdio>
#include <ctime>
#include <exception>
#include <utility>

namespace Zel::Log {

namespace {

std::tm localCalendarTime(std::time_t seconds) noexcept {
    std::tm calendar{};
#ifdef _WIN32
    ::localtime_s(&calendar, &seconds);
#else
    ::localtime_r(&seconds, &calendar);
#endif
    return calendar;
}

void putDigits(char* at, int value, int width) noexcept {
    for (int i = width - 1; i >= 0; --i) {
        at[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

// Converting to local time takes a lock inside the C library and reads the time zone, so each
// thread keeps the text of the second it last printed.
void appendTimestamp(std::string& out, std::chrono::system_clock::time_point time) {
    struct Cache {
        std::int64_t second = INT64_MIN;
        char text[19] = {};
    };
    thread_local Cache cache;

    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
    std::int64_t second = sinceEpoch.count() / 1000;
    int millisecond = static_cast<int>(sinceEpoch.count() % 1000);
    if (millisecond < 0) {
        millisecond += 1000;
        --second;
    }
    if (second != cache.second) {
        const std::tm calendar = localCalendarTime(static_cast<std::time_t>(second));
        char* p = cache.text;
        putDigits(p, calendar.tm_year + 1900, 4);
        p[4] = '-';
        putDigits(p + 5, calendar.tm_mon + 1, 2);
        p[7] = '-';
        putDigits(p + 8, calendar.tm_mday, 2);
        p[10] = ' ';
        putDigits(p + 11, calendar.tm_hour, 2);
        p[13] = ':';
        putDigits(p + 14, calendar.tm_min, 2);
        p[16] = ':';
        putDigits(p + 17, calendar.tm_sec, 2);
        cache.second = second;
    }
    char fraction[4] = {'.', '0', '0', '0'};
    putDigits(fraction + 1, millisecond, 3);
    out.append(cache.text, sizeof cache.text);
    out.append(fraction, sizeof fraction);
}

template <typename Integer>
void appendNumber(std::string& out, Integer value) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    out.append(digits, result.ptr);
}

// A plain loop: find_last_of with a set of two runs a search of the set for every byte.
std::string_view baseName(const char* path) noexcept {
    const char* name = path;
    for (const char* p = path; *p != '\0'; ++p) {
        if (*p == '/' || *p == '\\') name = p + 1;
    }
    return name;
}

void writeToStandardError(const std::string& message) {
    std::string line = message;
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

// One formatting buffer per thread keeps the hot path free of allocation; a sink that logs from
// inside its own format or write gets a fresh one instead of overwriting the outer record.
struct FormatBuffer {
    std::string text;
    bool inUse = false;
};
thread_local FormatBuffer formatBuffer;

constexpr std::size_t keptBufferCapacity = 64 * 1024;

} // namespace

BaseSink::BaseSink(Level minimalLevel) : ILog(minimalLevel) {}

BaseSink::~BaseSink() = default;

void BaseSink::log(Level level, const std::string& message, const std::string& data, DataType dataType,
                   const char* file, int line) {
    if (!levelEnabled(level)) return;
    logUnfiltered(level, message, data, dataType, file, line);
}

void BaseSink::logUnfiltered(Level level, const std::string& message, const std::string& data,
                             DataType dataType, const char* file, int line) {
    Record record;
    record.level = level;
    record.dataType = dataType;
    record.message = message;
    record.data = data;
    record.file = file;
    record.line = line;
    record.time = std::chrono::system_clock::now();
    record.threadId = ThreadContext::currentThreadId();
    record.subsystem = ThreadContext::currentSubsystem();
    record.context = ThreadContext::currentContext();

    if (formatBuffer.inUse) {
        std::string nested;
        writeRecord(record, nested);
        return;
    }
    formatBuffer.inUse = true;
    formatBuffer.text.clear();
    writeRecord(record, formatBuffer.text);
    if (formatBuffer.text.capacity() > keptBufferCapacity) std::string().swap(formatBuffer.text);
    formatBuffer.inUse = false;
}

void BaseSink::writeRecord(const Record& record, std::string& buffer) {
    std::string failure;
    try {
        format(record, buffer);
        std::lock_guard lock(m_mutex);
        write(record, buffer);
        return;
    } catch (const std::exception& e) {
        failure = e.what();
    } catch (...) {
        failure = "unknown exception";
    }
    try {
        std::lock_guard lock(m_mutex);
        reportFailure("Log sink: record dropped | error=" + failure);
    } catch (...) {
        // Nothing is left to tell; the record is lost but the caller carries on.
    }
}

void BaseSink::flush() {
    try {
        std::lock_guard lock(m_mutex);
        flushLocked();
    } catch (const std::exception& e) {
        std::lock_guard lock(m_mutex);
        reportFailure(std::string("Log sink: flush failed | error=") + e.what());
    }
}

void BaseSink::setErrorHandler(ErrorHandler handler) {
    std::lock_guard lock(m_mutex);
    m_errorHandler = std::move(handler);
}

void BaseSink::format(const Record& record, std::string& out) const {
    formatStandardLine(record, out, "\n");
}

void BaseSink::flushLocked() {}

void BaseSink::reportFailure(const std::string& message) {
    if (m_failing) return;
    m_failing = true;
    try {
        if (m_errorHandler) {
            m_errorHandler(message);
        } else {
            writeToStandardError(message);
        }
    } catch (...) {
        // A throwing handler must not turn a lost record into a failed call.
    }
}

void BaseSink::formatStandardLine(const Record& record, std::string& out, std::string_view lineEnd) {
    appendTimestamp(out, record.time);
    out += ' ';
    const std::string_view name = levelName(record.level);
    out += name;
    out.append(name.size() < 9 ? 9 - name.size() : 1, ' ');
    appendNumber(out, record.threadId);
    out += ' ';
    if (record.subsystem != 0 || !record.context.empty()) {
        out += '[';
        appendNumber(out, record.subsystem);
        out += ':';
        out += record.context;
        out += "] ";
    }
    out += record.message;
    if (!record.data.empty()) {
        out += " | data=";
        if (record.dataType == DataType::Json) {
            hidePrivateStringInJson(record.data, out);
        } else {
            out += record.data;
        }
    }
    if (record.file != nullptr && record.file[0] != '\0') {
        out += " | source=";
        out += baseName(record.file);
        out += ':';
        appendNumber(out, record.line);
    }
    out += lineEnd;
}

} // namespace Zel::Log
