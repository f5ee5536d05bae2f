#pragma once

#include <Zel/Log/ILog.h>
#include <Zel/Platform/Service.h>
#include <memory>
#include <mutex>

namespace ZelHost {

// "PlatformLog": the plug-ins' log records, one line each on standard error, so that standard
// output carries only replies, and into the host's log file (which rotates by size) when given one.
class PlatformLogService : public Zel::Platform::Service {
public:
    explicit PlatformLogService(std::shared_ptr<Zel::Log::ILog> file);

private:
    std::shared_ptr<Zel::Log::ILog> m_file;
    std::mutex m_mutex;
};

} // namespace ZelHost
