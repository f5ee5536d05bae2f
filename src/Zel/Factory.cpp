#include <Zel/Factory.h>
#include <Zel/NoFactoryException.h>
#include <mutex>

namespace Zel {

Factory::FactoryLambda::~FactoryLambda() = default;

Factory::Factory() = default;
Factory::~Factory() = default;

Factory::Factory(const Factory& other) {
    const std::shared_lock lock(other.m_mutex);
    m_lambdas = other.m_lambdas;
}

Factory::Factory(Factory&& other) noexcept {
    const std::unique_lock lock(other.m_mutex);
    m_lambdas = std::move(other.m_lambdas);
}

Factory& Factory::operator=(const Factory& other) {
    if (this != &other) {
        decltype(m_lambdas) copy;
        {
            const std::shared_lock lock(other.m_mutex);
            copy = other.m_lambdas;
        }
        const std::unique_lock lock(m_mutex);
        m_lambdas.swap(copy);
    }
    return *this;
}

Factory& Factory::operator=(Factory&& other) noexcept {
    if (this != &other) {
        const std::scoped_lock lock(m_mutex, other.m_mutex);
        m_lambdas = std::move(other.m_lambdas);
    }
    return *this;
}

void Factory::addLambda(const std::string& reference, LambdaPointer lambda) {
    const std::unique_lock lock(m_mutex);
    m_lambdas.insert_or_assign(reference, std::move(lambda));
}

Factory::LambdaPointer Factory::find(const std::string& reference) const {
    const std::shared_lock lock(m_mutex);
    const auto it = m_lambdas.find(reference);
    if (it == m_lambdas.end()) throw NoFactoryException("Factory: no factory for the reference " + reference);
    return it->second;
}

void Factory::throwInvalidType(const std::string& reference) {
    throw GenericException("Factory: invalid factory type for the reference " + reference);
}

bool Factory::has(const std::string& reference) const {
    const std::shared_lock lock(m_mutex);
    return m_lambdas.contains(reference);
}

std::size_t Factory::size() const {
    const std::shared_lock lock(m_mutex);
    return m_lambdas.size();
}

void Factory::clear() {
    decltype(m_lambdas) lambdas;
    const std::unique_lock lock(m_mutex);
    lambdas.swap(m_lambdas);
}

} // namespace Zel
