#pragma once

#include <Zel/Platform/Service.h>
#include <atomic>

namespace Zel::Platform {

// A service that refuses its operations while stopped, with the ServiceException
// "Service is not started | reference=..." (errorRef "serviceNotStarted"). It starts stopped.
class ZEL_API StartableService : public Service {
public:
    StartableService();
    explicit StartableService(std::string reference);
    StartableService(const StartableService& other);
    StartableService& operator=(const StartableService& other);
    ~StartableService() override;

    Variant call(const std::string& operation, const std::string& params) override;

    // Both are idempotent; onStart and onStop run only on a change of state. An exception from
    // onStart leaves the service stopped.
    void start();
    void stop();
    bool isStarted() const noexcept { return m_started.load(std::memory_order_acquire); }

protected:
    virtual void onStart() {}
    virtual void onStop() {}

private:
    std::atomic<bool> m_started{false};
};

} // namespace Zel::Platform
