#pragma once

#include <Zel/Platform/ServiceProxy.h>
#include <string>
#include <vector>

namespace Zel::Platform {

// The host's key-value store, service "DataStore" (see docs/host-services.md). Values are any JSON.
class ZEL_API DataStoreProxy : public ServiceProxy {
public:
    static constexpr const char* serviceReference = "DataStore";

    explicit DataStoreProxy(const IServiceCaller& caller);
    ~DataStoreProxy() override;

    // Null when the key is not set.
    Variant getKey(const std::string& key) const;
    void setKey(const std::string& key, const Variant& value) const;
    // False when the key was not set.
    bool removeKey(const std::string& key) const;
    // The keys that begin with `prefix`, in byte-wise order.
    std::vector<std::string> listKeys(const std::string& prefix = {}) const;
};

} // namespace Zel::Platform
