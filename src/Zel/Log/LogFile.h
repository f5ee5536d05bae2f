#pragma once

#include <Zel/Export.h>
#include <Zel/Log/BaseSink.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

namespace Zel::Log {

// Appends records to a file as lines ending in CR LF, in the form of BaseSink::formatStandardLine
// (JSON data has its secrets masked). The file is opened in append mode, its directory created if
// missing; an existing file is continued.
//
// By default every record reaches the file before log() returns. Records below
// Options::flushLevel may instead wait in memory until the buffer fills, a record at or above that
// level arrives, flush() is called or the sink is destroyed: faster, but a crash loses them.
//
// With Options::maxFileSize set, a record that would take the file past the size first moves it
// aside: "app.log" becomes "app.1.log", an older "app.1.log" becomes "app.2.log" and so on up to
// Options::keptFiles; the oldest beyond that is deleted (keptFiles 0: the file is emptied).
// A line is never split between files.
//
// Failures never reach the caller: a failed write (disk full, file system gone) is reported once
// through the error handler and the records are dropped until writing works again. A file deleted
// or moved away from under the sink is noticed within Options::existenceCheckInterval, reported
// and opened again at its path.
//
// Thread safety: any number of threads may log at once; each record is written whole.
class ZEL_API LogFile : public BaseSink {
public:
    struct Options {
        Level minimalLevel = Level::Trace;
        std::uint64_t maxFileSize = 0; // bytes; 0 never rotates
        unsigned keptFiles = 5;
        Level flushLevel = Level::Trace;
        std::size_t bufferSize = 64 * 1024;
        std::chrono::milliseconds existenceCheckInterval{1000}; // 0 checks before every write
    };

    // GenericException "Log file: cannot open | path=... | error=..." when the file cannot be opened.
    explicit LogFile(std::filesystem::path path);
    LogFile(std::filesystem::path path, const Options& options);
    ~LogFile() override;

    const std::filesystem::path& path() const noexcept { return m_path; }

    // Closes the file and opens it again at its path, for tools that move log files away
    // themselves. Failures are reported like failed writes.
    void reopen();

protected:
    void format(const Record& record, std::string& out) const override;
    void write(const Record& record, std::string_view text) override;
    void flushLocked() override;

private:
    bool open(bool truncate, std::string* error);
    void close() noexcept;
    void writeOut(std::string_view text);
    void checkExistence(std::chrono::system_clock::time_point now);
    void rotate();
    std::filesystem::path rotatedPath(unsigned index) const;

    std::filesystem::path m_path;
    Options m_options;
    std::FILE* m_file = nullptr;
    std::uint64_t m_fileSize = 0;
    std::string m_buffer;
    std::chrono::system_clock::time_point m_lastExistenceCheck;
};

} // namespace Zel::Log
