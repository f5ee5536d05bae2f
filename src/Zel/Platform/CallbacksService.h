#pragma once

#include <Zel/Platform/Operation.h>
#include <Zel/Platform/Service.h>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace Zel::Platform {

// The service through which the host calls a plug-in back. add() files a callback and returns the
// Operation to hand to the host: this service's reference ("Callbacks_" and the plug-in's name),
// the operation "runCallback" and params {"callbackId":<id>}. The host calls that operation with
// those params, to which it may add keys of its own; the callback receives them all.
//
// Thread safety: callbacks may be added and removed while the host calls others.
class ZEL_API CallbacksService : public Service {
public:
    using Callback = std::function<void(const Variant& params)>;

    static constexpr const char* referencePrefix = "Callbacks_";
    static constexpr const char* runCallbackOperation = "runCallback";

    CallbacksService();
    ~CallbacksService() override;

    // Sets the reference to "Callbacks_" + name.
    void setName(const std::string& name);

    Operation add(Callback callback);
    // False when there was no such callback.
    bool remove(std::int64_t callbackId);
    std::size_t size() const;

private:
    // ServiceException "Callback not found | callbackId=..." (errorRef "callbackNotFound").
    void runCallback(const Variant& params);

    mutable std::mutex m_mutex;
    // Shared so that a callback can run outside the lock while another thread removes it.
    std::unordered_map<std::int64_t, std::shared_ptr<const Callback>> m_callbacks;
    std::atomic<std::int64_t> m_nextId{1};
};

} // namespace Zel::Platform
