#pragma once

#include <Zel/Platform/ServiceProxy.h>
#include <cstdint>
#include <string>

namespace Zel::Platform {

// The host's message channels, service "Messages" (see docs/host-services.md): short texts for
// operators or other plug-ins, kept by the host per channel.
class ZEL_API MessagesProxy : public ServiceProxy {
public:
    static constexpr const char* serviceReference = "Messages";

    explicit MessagesProxy(const IServiceCaller& caller);
    ~MessagesProxy() override;

    // Returns the message's id.
    std::int64_t send(const std::string& channel, const std::string& text, const Variant& data = {}) const;
    // The channel's messages, oldest first, each {"id","text","data"}.
    Variant list(const std::string& channel) const;
};

} // namespace Zel::Platform
