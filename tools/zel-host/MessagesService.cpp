#include "MessagesService.h"

#include "Params.h"

#include <iostream>

namespace ZelHost {

MessagesService::MessagesService() : Service("Messages") {
    addInterface("IMessages");
    on("send", [this](const Zel::Variant& params) {
        const std::string channel = stringParam(params, "channel");
        const std::string text = stringParam(params, "text");
        Zel::Variant message = Zel::Variant::makeMap();
        message.setAt("text", text);
        message.setAt("data", anyParam(params, "data"));
        const std::lock_guard lock(m_mutex);
        const std::int64_t id = m_nextId++;
        message.setAt("id", id);
        auto [it, added] = m_channels.try_emplace(channel, Zel::Variant::makeVector());
        it->second.push_back(std::move(message));
        std::cerr << "zel-host: message #" << id << " on " << channel << ": " << text << '\n';
        return id;
    });
    on("list", [this](const Zel::Variant& params) {
        const std::string channel = stringParam(params, "channel");
        const std::lock_guard lock(m_mutex);
        const auto it = m_channels.find(channel);
        return it == m_channels.end() ? Zel::Variant::makeVector() : it->second;
    });
}

} // namespace ZelHost
