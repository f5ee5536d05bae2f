#pragma once

#include <Zel/Export.h>
#include <Zel/Log/Level.h>

#include <atomic>
#include <string>

namespace Zel::Log {

// The logging interface every component of the library writes through; held by shared pointer.
//
// A sink decides in levelEnabled whether a record of a level is wanted, and log writes the record
// (log checks the level again, so callers need not). The default levelEnabled passes records whose
// level is the minimal level or more severe than it.
//
// Thread safety: implementations are shared between threads and must accept concurrent calls of
// every operation; minimalLevel and setMinimalLevel are atomic. Records from different threads
// never interleave within a line.
//
// The helpers below capture the caller's source file and line through their default arguments.
// They still build the message string before the level is checked; where that costs something,
// use the ZEL_LOG_... macros of <Zel/Log/Macros.h>, which evaluate nothing for a filtered level.
class ZEL_API ILog {
public:
    virtual ~ILog();

    virtual bool levelEnabled(Level level) const;
    virtual void log(Level level, const std::string& message, const std::string& data, DataType dataType,
                     const char* file, int line) = 0;

    void trace(const std::string& message, const std::string& data = {}, DataType dataType = DataType::Text,
               const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
        log(Level::Trace, message, data, dataType, file, line);
    }
    void debug(const std::string& message, const std::string& data = {}, DataType dataType = DataType::Text,
               const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
        log(Level::Debug, message, data, dataType, file, line);
    }
    void info(const std::string& message, const std::string& data = {}, DataType dataType = DataType::Text,
              const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
        log(Level::Info, message, data, dataType, file, line);
    }
    void notice(const std::string& message, const std::string& data = {}, DataType dataType = DataType::Text,
                const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
        log(Level::Notice, message, data, dataType, file, line);
    }
    void warning(const std::string& message, const std::string& data = {}, DataType dataType = DataType::Text,
                 const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
        log(Level::Warning, message, data, dataType, file, line);
    }
    void error(const std::string& message, const std::string& data = {}, DataType dataType = DataType::Text,
               const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
        log(Level::Error, message, data, dataType, file, line);
    }
    void critical(const std::string& message, const std::string& data = {},
                  DataType dataType = DataType::Text, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE()) {
        log(Level::Critical, message, data, dataType, file, line);
    }

    Level minimalLevel() const noexcept { return m_minimalLevel.load(std::memory_order_relaxed); }
    // std::out_of_range for a level outside the enumeration; the old level then stays.
    void setMinimalLevel(Level level);

    ILog(const ILog&) = delete;
    ILog& operator=(const ILog&) = delete;

protected:
    // Trace, the least severe level, lets every record through.
    explicit ILog(Level minimalLevel = Level::Trace);

private:
    std::atomic<Level> m_minimalLevel;
};

} // namespace Zel::Log
