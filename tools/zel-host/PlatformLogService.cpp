#include "PlatformLogService.h"

#include "Caller.h"
#include "Params.h"

#include <Zel/Log/Level.h>
#include <iostream>

namespace ZelHost {

PlatformLogService::PlatformLogService(std::shared_ptr<Zel::Log::ILog> file)
    : Service("PlatformLog"), m_file(std::move(file)) {
    addInterface("IPlatformLog");
    on("log", [this](const Zel::Variant& params) {
        const std::string level = stringParam(params, "level");
        Zel::Log::Level parsed{};
        try {
            parsed = Zel::Log::parseLevel(level);
        } catch (const std::exception&) {
            badParameter("level");
        }
        const std::string& caller = CallerScope::current();
        std::string line =
            "[" + level + "] " + (caller.empty() ? "" : caller + ": ") + stringParam(params, "message");
        if (const Zel::Variant* data = optionalParam(params, "data"))
            line += " | data=" + (data->isString() ? data->_string() : data->toJson());
        if (const Zel::Variant* source = optionalParam(params, "source"))
            line += " | source=" + static_cast<std::string>(*source);
        if (m_file) m_file->log(parsed, line, {}, Zel::Log::DataType::Text, "", 0);
        const std::lock_guard lock(m_mutex);
        std::cerr << line << '\n';
    });
}

} // namespace ZelHost
