#pragma once

#include <Zel/Log/ILog.h>
#include <Zel/Platform/PlatformLog.h>

namespace Zel::Platform {

// A Zel::Log::ILog that writes to the host's log, so that a plug-in's components log where the
// host's own records go. A record the host cannot take (before init, after deinit, an error reply)
// is dropped: logging never fails the code that logs.
class ZEL_API PlatformLogSink : public Log::ILog {
public:
    explicit PlatformLogSink(const IServiceCaller& caller, Log::Level minimalLevel = Log::Level::Trace);
    ~PlatformLogSink() override;

    void log(Log::Level level, const std::string& message, const std::string& data, Log::DataType dataType,
             const char* file, int line) override;

private:
    PlatformLog m_platformLog;
};

} // namespace Zel::Platform
