#include <Zel/Platform/CallbacksService.h>
#include <Zel/Platform/ServiceException.h>

namespace Zel::Platform {

CallbacksService::CallbacksService() : Service(referencePrefix) {
    on(runCallbackOperation, [this](const Variant& params) { runCallback(params); });
}

CallbacksService::~CallbacksService() = default;

void CallbacksService::setName(const std::string& name) {
    setReference(referencePrefix + name);
}

Operation CallbacksService::add(Callback callback) {
    const std::int64_t id = m_nextId.fetch_add(1, std::memory_order_relaxed);
    {
        const std::lock_guard lock(m_mutex);
        m_callbacks.emplace(id, std::make_shared<const Callback>(std::move(callback)));
    }
    return Operation{reference(), runCallbackOperation, "{\"callbackId\":" + std::to_string(id) + "}"};
}

bool CallbacksService::remove(std::int64_t callbackId) {
    std::shared_ptr<const Callback> removed;
    const std::lock_guard lock(m_mutex);
    const auto it = m_callbacks.find(callbackId);
    if (it == m_callbacks.end()) return false;
    removed = std::move(it->second);
    m_callbacks.erase(it);
    return true;
}

std::size_t CallbacksService::size() const {
    const std::lock_guard lock(m_mutex);
    return m_callbacks.size();
}

void CallbacksService::runCallback(const Variant& params) {
    const Variant* idValue = params.isMap() ? params.find("callbackId") : nullptr;
    std::shared_ptr<const Callback> callback;
    if (idValue != nullptr && idValue->isInteger()) {
        const std::lock_guard lock(m_mutex);
        const auto it = m_callbacks.find(static_cast<std::int64_t>(*idValue));
        if (it != m_callbacks.end()) callback = it->second;
    }
    if (!callback) {
        const std::string id = idValue != nullptr ? idValue->toJson() : "null";
        throw ServiceException("callbackNotFound", "Callback not found | callbackId=" + id);
    }
    (*callback)(params);
}

} // namespace Zel::Platform
