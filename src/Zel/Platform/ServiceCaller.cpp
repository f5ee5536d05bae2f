#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/Platform/ReplyAllocator.h>
#include <Zel/Platform/ServiceCaller.h>
#include <Zel/Platform/ServiceException.h>

namespace Zel::Platform {

ServiceCaller::~ServiceCaller() = default;

Variant ServiceCaller::call(const std::string& service, const std::string& operation,
                            const std::string& params) const {
    const PlatformCallback callback = platformCallback();
    if (callback == nullptr) throw GenericException("Platform plugin is not initialized");

    char* replyText = nullptr;
    std::uint64_t replyLength = 0;
    callback(service.data(), service.size(), operation.data(), operation.size(), params.data(), params.size(),
             &replyText, &replyLength);
    Variant reply;
    {
        // The buffer is ours now, and goes back to the shared allocator even when it is not JSON.
        const ReplyPointer owned(replyText);
        reply = Json::parse(std::string_view(replyText == nullptr ? "" : replyText, replyLength));
    }

    if (reply.isMap()) {
        const Variant* result = reply.find("result");
        // Only the error result means failure: a receiver is lenient about every other value.
        if (result != nullptr && result->isInteger() &&
            static_cast<std::int64_t>(*result) == ServiceException::errorResult)
            throw ServiceException(reply);
    }
    // A reply that is not an object fails here with the Variant's own type error.
    Variant data;
    if (reply.contains("data", data)) return data;
    return {};
}

} // namespace Zel::Platform
