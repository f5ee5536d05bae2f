#pragma once

#include <Zel/Platform/Service.h>
#include <mutex>

namespace ZelHost {

// "PlatformLog": the plug-in's log records, one line each on standard error, so that standard
// output carries only replies.
class PlatformLogService : public Zel::Platform::Service {
public:
    PlatformLogService();

private:
    std::mutex m_mutex;
};

} // namespace ZelHost
