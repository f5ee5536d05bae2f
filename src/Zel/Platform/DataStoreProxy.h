#pragma once

#include <Zel/Platform/ServiceProxy.h>
#include <cstdint>
#include <string>
#include <vector>

namespace Zel::Platform {

// The host's key-value store, service "DataStore" (see docs/host-services.md). Values are any JSON.
//
// Every operation takes an optional transaction id: 0 runs it on its own, committed before the host
// replies; an id from beginTransaction() runs it inside that transaction, which only the plug-in
// that began it may use. DataStoreTransaction wraps the id and rolls back unless committed.
class ZEL_API DataStoreProxy : public ServiceProxy {
public:
    static constexpr const char* serviceReference = "DataStore";

    explicit DataStoreProxy(const IServiceCaller& caller);
    ~DataStoreProxy() override;

    // Null when the key is not set.
    Variant getKey(const std::string& key, std::int64_t transactionId = 0) const;
    void setKey(const std::string& key, const Variant& value, std::int64_t transactionId = 0) const;
    // False when the key was not set.
    bool removeKey(const std::string& key, std::int64_t transactionId = 0) const;
    // The keys that begin with `prefix`, in byte-wise order.
    std::vector<std::string> listKeys(const std::string& prefix = {}, std::int64_t transactionId = 0) const;

    // A new transaction's id. The host rolls it back when the plug-in is de-initialised or leaves it
    // idle longer than the host's timeout.
    std::int64_t beginTransaction() const;
    void commitTransaction(std::int64_t transactionId) const;
    void rollbackTransaction(std::int64_t transactionId) const;
};

} // namespace Zel::Platform
