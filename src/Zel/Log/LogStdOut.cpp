#include <Zel/Log/LogStdOut.h>

#include <Zel/StringUtils.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#ifdef _WIN32
#include <iostream>
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace Zel::Log {

namespace {

// Shared by every console sink: two of them must not interleave within a line either.
std::mutex consoleMutex;

// The console's colour for a level, as Windows text attributes (FOREGROUND_... bits); 0 keeps it.
int consoleAttribute(Level level) noexcept {
    switch (level) {
    case Level::Warning:
        return 13;
    case Level::Error:
    case Level::Critical:
        return 12;
    case Level::Notice:
    case Level::Debug:
    case Level::Trace:
        return 8;
    default:
        return 0;
    }
}

#ifdef _WIN32

bool consoleShowsColours() noexcept {
    return true;
}

// Returns an error text, empty on success.
std::string writeConsoleLine(Level level, std::string_view text, bool colours) {
    HANDLE console = ::GetStdHandle(STD_OUTPUT_HANDLE);
    CONSOLE_SCREEN_BUFFER_INFO before{};
    const int attribute = colours ? consoleAttribute(level) : 0;
    const bool restore = attribute != 0 && ::GetConsoleScreenBufferInfo(console, &before);
    if (attribute != 0) ::SetConsoleTextAttribute(console, static_cast<WORD>(attribute));
    std::wstring wide(static_cast<std::size_t>(::MultiByteToWideChar(
                          CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0)),
                      L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                          static_cast<int>(wide.size()));
    std::wcout << wide << std::flush;
    if (restore) ::SetConsoleTextAttribute(console, before.wAttributes);
    if (!std::wcout) {
        std::wcout.clear();
        return "console stream failed";
    }
    return {};
}

#else

bool consoleShowsColours() noexcept {
    return ::isatty(::fileno(stdout)) == 1;
}

const char* ansiColour(int attribute) noexcept {
    switch (attribute) {
    case 13:
        return "\x1b[95m";
    case 12:
        return "\x1b[91m";
    case 8:
        return "\x1b[90m";
    default:
        return nullptr;
    }
}

std::string writeConsoleLine(Level level, std::string_view text, bool colours) {
    const char* colour = colours ? ansiColour(consoleAttribute(level)) : nullptr;
    std::string line;
    line.reserve(text.size() + 16);
    if (colour != nullptr) line += colour;
    line += text;
    // The reset goes before the line break so that a terminal never carries the colour over.
    if (colour != nullptr) line.insert(line.size() - 1, "\x1b[0m");
    errno = 0;
    const bool written = std::fwrite(line.data(), 1, line.size(), stdout) == line.size();
    const bool flushed = std::fflush(stdout) == 0;
    if (written && flushed) return {};
    const int error = errno;
    std::clearerr(stdout);
    return error != 0 ? std::strerror(error) : "short write";
}

#endif

} // namespace

LogStdOut::LogStdOut(Level minimalLevel, Colours colours)
    : BaseSink(minimalLevel),
      m_colours(colours == Colours::Always || (colours == Colours::Auto && consoleShowsColours())) {}

LogStdOut::~LogStdOut() = default;

void LogStdOut::format(const Record& record, std::string& out) const {
    if (record.level == Level::Error || record.level == Level::Critical) {
        out += StringUtils::toUpper(levelName(record.level));
        out += ": ";
    }
    out += record.message;
    out += '\n';
}

void LogStdOut::write(const Record& record, std::string_view text) {
    std::string error;
    {
        std::lock_guard lock(consoleMutex);
        error = writeConsoleLine(record.level, text, m_colours);
    }
    if (error.empty()) {
        clearFailure();
    } else {
        reportFailure("Log console: write failed | error=" + error);
    }
}

} // namespace Zel::Log
