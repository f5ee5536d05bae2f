#include <Zel/Platform/MessagesProxy.h>

namespace Zel::Platform {

MessagesProxy::MessagesProxy(const IServiceCaller& caller) : ServiceProxy(caller, serviceReference) {}
MessagesProxy::~MessagesProxy() = default;

std::int64_t MessagesProxy::send(const std::string& channel, const std::string& text,
                                 const Variant& data) const {
    return static_cast<std::int64_t>(
        call("send", Json::Object().add("channel", channel).add("text", text).add("data", data)));
}

Variant MessagesProxy::list(const std::string& channel) const {
    return call("list", Json::Object().add("channel", channel));
}

} // namespace Zel::Platform
