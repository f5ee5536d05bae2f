#pragma once

#include <Zel/Log/ILog.h>

#include <memory>
#include <string>

// Logging that costs nothing when the level is off: the message and data arguments are evaluated
// only after the log's levelEnabled agreed, and the caller's file and line are filled in.
//
//     ZEL_LOG_WARNING(m_log, "Task failed | name=" + task.name());
//     ZEL_LOG_DEBUG(m_log, "Reply", reply.toJson(), Zel::Log::DataType::Json);
//
// The first argument is a shared_ptr (or unique_ptr) to a log, a pointer (null logs nothing) or a
// reference. After it come the message and optionally the data text and its data type.

namespace Zel::Log::Detail {

inline ILog* logTarget(ILog& log) noexcept {
    return &log;
}
inline ILog* logTarget(ILog* log) noexcept {
    return log;
}
template <typename T>
ILog* logTarget(const std::shared_ptr<T>& log) noexcept {
    return log.get();
}
template <typename T>
ILog* logTarget(const std::unique_ptr<T>& log) noexcept {
    return log.get();
}

inline void logAt(ILog& log, Level level, const char* file, int line, const std::string& message,
                  const std::string& data = {}, DataType dataType = DataType::Text) {
    log.log(level, message, data, dataType, file, line);
}

} // namespace Zel::Log::Detail

#define ZEL_LOG(logger, level, ...)                                                                          \
    do {                                                                                                     \
        ::Zel::Log::ILog* const zelLogTarget_ = ::Zel::Log::Detail::logTarget(logger);                       \
        const ::Zel::Log::Level zelLogLevel_ = (level);                                                      \
        if (zelLogTarget_ != nullptr && zelLogTarget_->levelEnabled(zelLogLevel_)) {                         \
            ::Zel::Log::Detail::logAt(*zelLogTarget_, zelLogLevel_, __FILE__, __LINE__, __VA_ARGS__);        \
        }                                                                                                    \
    } while (false)

#define ZEL_LOG_TRACE(logger, ...) ZEL_LOG(logger, ::Zel::Log::Level::Trace, __VA_ARGS__)
#define ZEL_LOG_DEBUG(logger, ...) ZEL_LOG(logger, ::Zel::Log::Level::Debug, __VA_ARGS__)
#define ZEL_LOG_NOTICE(logger, ...) ZEL_LOG(logger, ::Zel::Log::Level::Notice, __VA_ARGS__)
#define ZEL_LOG_INFO(logger, ...) ZEL_LOG(logger, ::Zel::Log::Level::Info, __VA_ARGS__)
#define ZEL_LOG_WARNING(logger, ...) ZEL_LOG(logger, ::Zel::Log::Level::Warning, __VA_ARGS__)
#define ZEL_LOG_ERROR(logger, ...) ZEL_LOG(logger, ::Zel::Log::Level::Error, __VA_ARGS__)
#define ZEL_LOG_CRITICAL(logger, ...) ZEL_LOG(logger, ::Zel::Log::Level::Critical, __VA_ARGS__)
