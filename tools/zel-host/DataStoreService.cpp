#include "DataStoreService.h"

#include "Params.h"

namespace ZelHost {

DataStoreService::DataStoreService() : Service("DataStore") {
    addInterface("IDataStore");
    on("getKey", [this](const Zel::Variant& params) {
        const std::string key = stringParam(params, "key");
        const std::lock_guard lock(m_mutex);
        const auto it = m_values.find(key);
        return it == m_values.end() ? Zel::Variant() : it->second;
    });
    on("setKey", [this](const Zel::Variant& params) {
        const std::string key = stringParam(params, "key");
        Zel::Variant value = anyParam(params, "value");
        const std::lock_guard lock(m_mutex);
        m_values.insert_or_assign(key, std::move(value));
    });
    on("removeKey", [this](const Zel::Variant& params) {
        const std::string key = stringParam(params, "key");
        const std::lock_guard lock(m_mutex);
        return m_values.erase(key) > 0;
    });
    on("listKeys", [this](const Zel::Variant& params) {
        const Zel::Variant* prefixValue = optionalParam(params, "prefix");
        const std::string prefix = prefixValue != nullptr ? static_cast<std::string>(*prefixValue) : "";
        Zel::Variant keys = Zel::Variant::makeVector();
        const std::lock_guard lock(m_mutex);
        for (auto it = m_values.lower_bound(prefix); it != m_values.end() && it->first.starts_with(prefix);
             ++it)
            keys.push_back(Zel::Variant(it->first));
        return keys;
    });
}

} // namespace ZelHost
