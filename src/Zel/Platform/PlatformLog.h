#pragma once

#include <Zel/Log/Level.h>
#include <Zel/Platform/ServiceProxy.h>
#include <string>

namespace Zel::Platform {

// The host's log, service "PlatformLog" (see docs/host-services.md).
class ZEL_API PlatformLog : public ServiceProxy {
public:
    static constexpr const char* serviceReference = "PlatformLog";

    explicit PlatformLog(const IServiceCaller& caller);
    ~PlatformLog() override;

    void log(Log::Level level, const std::string& message, const std::string& data = {},
             const std::string& source = {}) const;
};

} // namespace Zel::Platform
