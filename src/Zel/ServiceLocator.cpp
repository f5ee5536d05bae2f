#include <Zel/GenericException.h>
#include <Zel/ServiceLocator.h>

namespace Zel {

ServiceLocator::Instance::~Instance() = default;

ServiceLocator::ServiceLocator() = default;
ServiceLocator::~ServiceLocator() = default;

void ServiceLocator::addInstance(const std::string& reference, std::unique_ptr<Instance> instance) {
    const std::lock_guard lock(m_mutex);
    if (m_instances.contains(reference))
        throw GenericException("Service Locator: instance already exists | reference=" + reference);
    m_instances.emplace(reference, std::move(instance));
}

void ServiceLocator::visit(const std::string& reference,
                           const std::function<void(const Instance&)>& found) const {
    const std::lock_guard lock(m_mutex);
    const auto it = m_instances.find(reference);
    if (it != m_instances.end()) found(*it->second);
}

void ServiceLocator::throwInvalidType(const std::string& reference) {
    throw GenericException("Service Locator: invalid instance type | reference=" + reference);
}

bool ServiceLocator::has(const std::string& reference) const {
    const std::lock_guard lock(m_mutex);
    return m_instances.contains(reference);
}

std::size_t ServiceLocator::size() const {
    const std::lock_guard lock(m_mutex);
    return m_instances.size();
}

void ServiceLocator::clear() {
    // The instances are destroyed outside the lock: a destructor may well use the locator.
    decltype(m_instances) instances;
    {
        const std::lock_guard lock(m_mutex);
        instances.swap(m_instances);
    }
}

} // namespace Zel
