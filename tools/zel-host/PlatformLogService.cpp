#include "PlatformLogService.h"

#include "Params.h"

#include <Zel/Log/Level.h>
#include <iostream>

namespace ZelHost {

PlatformLogService::PlatformLogService() : Service("PlatformLog") {
    addInterface("IPlatformLog");
    on("log", [this](const Zel::Variant& params) {
        const std::string level = stringParam(params, "level");
        try {
            Zel::Log::parseLevel(level);
        } catch (const std::exception&) {
            badParameter("level");
        }
        std::string line = "[" + level + "] " + stringParam(params, "message");
        if (const Zel::Variant* data = optionalParam(params, "data"))
            line += " | data=" + (data->isString() ? data->_string() : data->toJson());
        if (const Zel::Variant* source = optionalParam(params, "source"))
            line += " | source=" + static_cast<std::string>(*source);
        const std::lock_guard lock(m_mutex);
        std::cerr << line << '\n';
    });
}

} // namespace ZelHost
