#include <Zel/Platform/ServiceException.h>
#include <Zel/Platform/StartableService.h>

namespace Zel::Platform {

StartableService::StartableService() = default;
StartableService::StartableService(std::string reference) : Service(std::move(reference)) {}
StartableService::StartableService(const StartableService& other)
    : Service(other), m_started(other.isStarted()) {}

StartableService& StartableService::operator=(const StartableService& other) {
    Service::operator=(other);
    m_started.store(other.isStarted(), std::memory_order_release);
    return *this;
}

StartableService::~StartableService() = default;

Variant StartableService::call(const std::string& operation, const std::string& params) {
    if (!isStarted()) throw serviceNotStarted(reference());
    return Service::call(operation, params);
}

void StartableService::start() {
    if (isStarted()) return;
    onStart();
    m_started.store(true, std::memory_order_release);
}

void StartableService::stop() {
    if (!isStarted()) return;
    m_started.store(false, std::memory_order_release);
    onStop();
}

} // namespace Zel::Platform
