#pragma once

#include <Zel/Platform/DataStoreProxy.h>
#include <cstdint>
#include <string>
#include <vector>

namespace Zel::Platform {

// One transaction of the host's data store, rolled back unless committed:
//
//     DataStoreTransaction tx(*store);
//     tx.setKey("a", 1);
//     tx.setKey("b", 2);
//     tx.commit();            // both or, on any exception before this line, neither
//
// It keeps a reference to the proxy, which must outlive it. Move-only; one thread at a time.
class ZEL_API DataStoreTransaction {
public:
    // Begins at once; ServiceException when the host refuses.
    explicit DataStoreTransaction(const DataStoreProxy& store);
    // Rolls back when still active; a failure to do so is swallowed (the host rolls the transaction
    // back on its own after its idle timeout).
    ~DataStoreTransaction();
    DataStoreTransaction(DataStoreTransaction&& other) noexcept;
    DataStoreTransaction& operator=(DataStoreTransaction&&) = delete;
    DataStoreTransaction(const DataStoreTransaction&) = delete;
    DataStoreTransaction& operator=(const DataStoreTransaction&) = delete;

    std::int64_t id() const noexcept { return m_id; }
    bool active() const noexcept { return m_id != 0; }

    Variant getKey(const std::string& key) const;
    void setKey(const std::string& key, const Variant& value) const;
    bool removeKey(const std::string& key) const;
    std::vector<std::string> listKeys(const std::string& prefix = {}) const;

    // Both end the transaction, also when the host reports an error; InvalidOperationException when
    // it has already ended.
    void commit();
    void rollback();

private:
    std::int64_t activeId() const;

    const DataStoreProxy* m_store;
    std::int64_t m_id;
};

} // namespace Zel::Platform
