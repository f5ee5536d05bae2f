#include <Zel/Platform/PlatformLogSink.h>
#include <string_view>

namespace Zel::Platform {

PlatformLogSink::PlatformLogSink(const IServiceCaller& caller, Log::Level minimalLevel)
    : ILog(minimalLevel), m_platformLog(caller) {}

PlatformLogSink::~PlatformLogSink() = default;

void PlatformLogSink::log(Log::Level level, const std::string& message, const std::string& data,
                          Log::DataType, const char* file, int line) {
    if (!levelEnabled(level)) return;
    try {
        std::string source;
        if (file != nullptr) {
            // The file name is enough to find the line, and keeps build paths out of the host's log.
            const std::string_view path(file);
            source = path.substr(path.find_last_of("/\\") + 1);
            source += ':';
            source += std::to_string(line);
        }
        m_platformLog.log(level, message, data, source);
    } catch (...) {
    }
}

} // namespace Zel::Platform
