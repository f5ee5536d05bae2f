#include <Zel/InvalidOperationException.h>
#include <Zel/Platform/DataStoreTransaction.h>
#include <utility>

namespace Zel::Platform {

DataStoreTransaction::DataStoreTransaction(const DataStoreProxy& store)
    : m_store(&store), m_id(store.beginTransaction()) {}

DataStoreTransaction::~DataStoreTransaction() {
    if (m_id == 0) return;
    try {
        m_store->rollbackTransaction(m_id);
    } catch (...) {
    }
}

DataStoreTransaction::DataStoreTransaction(DataStoreTransaction&& other) noexcept
    : m_store(other.m_store), m_id(std::exchange(other.m_id, 0)) {}

std::int64_t DataStoreTransaction::activeId() const {
    if (m_id == 0) ZEL_THROW_INVALID_OPERATION();
    return m_id;
}

Variant DataStoreTransaction::getKey(const std::string& key) const {
    return m_store->getKey(key, activeId());
}

void DataStoreTransaction::setKey(const std::string& key, const Variant& value) const {
    m_store->setKey(key, value, activeId());
}

bool DataStoreTransaction::removeKey(const std::string& key) const {
    return m_store->removeKey(key, activeId());
}

std::vector<std::string> DataStoreTransaction::listKeys(const std::string& prefix) const {
    return m_store->listKeys(prefix, activeId());
}

void DataStoreTransaction::commit() {
    // Ended before the call: after a failed commit the host has rolled back or still holds nothing
    // this object could finish.
    const std::int64_t id = activeId();
    m_id = 0;
    m_store->commitTransaction(id);
}

void DataStoreTransaction::rollback() {
    const std::int64_t id = activeId();
    m_id = 0;
    m_store->rollbackTransaction(id);
}

} // namespace Zel::Platform
