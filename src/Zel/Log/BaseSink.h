#pragma once

#include <Zel/Export.h>
#include <Zel/Log/ILog.h>
#include <Zel/Log/Record.h>

#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace Zel::Log {

// Base of the library's sinks: checks the level, formats the record on the calling thread, then
// takes the sink's lock once and hands the text to write(), so an implementation never locks and
// never sees two records at once.
//
// A sink must not take a service down: whatever format() or write() throws is caught, and a
// failure is reported once through the error handler (by default one line on stderr) until a
// later write succeeds. Records lost meanwhile are dropped without further noise.
//
// Thread safety: every public operation may be called from any number of threads at once.
// An invalid level (outside the enumeration) is a programming error and throws std::out_of_range
// from levelEnabled and log before anything is written.
class ZEL_API BaseSink : public ILog {
public:
    using ErrorHandler = std::function<void(const std::string& message)>;

    ~BaseSink() override;

    // Final so that the locking and failure rules hold for every sink; derived sinks customise
    // levelEnabled, format and write.
    void log(Level level, const std::string& message, const std::string& data, DataType dataType,
             const char* file, int line) final;

    // Pushes whatever the sink holds back to its destination.
    void flush();

    // Receives the failure reports; an empty handler restores the stderr default.
    void setErrorHandler(ErrorHandler handler);

protected:
    explicit BaseSink(Level minimalLevel = Level::Trace);

    // What log() does once the level is accepted; for sinks that write some records regardless of
    // the level.
    void logUnfiltered(Level level, const std::string& message, const std::string& data, DataType dataType,
                       const char* file, int line);

    // Appends the record's text to `out`. Runs without the lock, possibly on several threads at
    // once, so it must only read the sink. The default is formatStandardLine with "\n".
    virtual void format(const Record& record, std::string& out) const;

    // Writes one formatted record; called with the lock held.
    virtual void write(const Record& record, std::string_view text) = 0;

    // Called with the lock held by flush(); the default has nothing to do.
    virtual void flushLocked();

    // For write() and flushLocked() (lock held): a failed write reports `message` unless a failure
    // is already outstanding; a successful one clears the outstanding failure.
    void reportFailure(const std::string& message);
    void clearFailure() noexcept { m_failing = false; }
    bool failing() const noexcept { return m_failing; }

    // The line of the file sink: "2024-03-05 07:08:09.123 Warning  4711 [3:import] message
    // | data=... | source=File.cpp:42" followed by `lineEnd`. The thread context part appears only
    // when one is installed; data of type Json has its secrets masked.
    static void formatStandardLine(const Record& record, std::string& out, std::string_view lineEnd);

    // Callers lock this to read a derived sink's state consistently with write().
    std::mutex& mutex() const noexcept { return m_mutex; }

private:
    void writeRecord(const Record& record, std::string& buffer);

    mutable std::mutex m_mutex;
    ErrorHandler m_errorHandler;
    bool m_failing = false;
};

} // namespace Zel::Log
