#include <Zel/Platform/PlatformLog.h>

namespace Zel::Platform {

PlatformLog::PlatformLog(const IServiceCaller& caller) : ServiceProxy(caller, serviceReference) {}
PlatformLog::~PlatformLog() = default;

void PlatformLog::log(Log::Level level, const std::string& message, const std::string& data,
                      const std::string& source) const {
    Json::Object params;
    params.add("level", Variant(Log::levelName(level))).add("message", message);
    if (!data.empty()) params.add("data", data);
    if (!source.empty()) params.add("source", source);
    call("log", params);
}

} // namespace Zel::Platform
