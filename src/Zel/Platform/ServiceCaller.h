#pragma once

#include <Zel/Platform/IServiceCaller.h>
#include <Zel/Platform/PlatformCallback.h>
#include <atomic>

namespace Zel::Platform {

// Hands a plug-in's outgoing calls to its host through the callback the host gave at init.
//
// Thread safety: call may run on any number of threads at once. Setting the callback while calls
// are in flight is safe for the caller object, though those calls may still reach the old one.
class ZEL_API ServiceCaller : public IServiceCaller {
public:
    ServiceCaller() = default;
    explicit ServiceCaller(PlatformCallback callback) : m_callback(callback) {}
    ServiceCaller(const ServiceCaller& other) noexcept : m_callback(other.platformCallback()) {}
    ServiceCaller& operator=(const ServiceCaller& other) noexcept {
        setPlatformCallback(other.platformCallback());
        return *this;
    }
    ~ServiceCaller() override;

    // GenericException "Platform plugin is not initialized" while no callback is set; a
    // ServiceException for an error reply; the reply's "data" (null when absent) otherwise.
    Variant call(const std::string& service, const std::string& operation,
                 const std::string& params) const override;

    void setPlatformCallback(PlatformCallback callback) noexcept {
        m_callback.store(callback, std::memory_order_release);
    }
    PlatformCallback platformCallback() const noexcept { return m_callback.load(std::memory_order_acquire); }

private:
    std::atomic<PlatformCallback> m_callback{nullptr};
};

} // namespace Zel::Platform
