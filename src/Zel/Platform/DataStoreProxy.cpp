#include <Zel/Platform/DataStoreProxy.h>

namespace Zel::Platform {

DataStoreProxy::DataStoreProxy(const IServiceCaller& caller) : ServiceProxy(caller, serviceReference) {}
DataStoreProxy::~DataStoreProxy() = default;

Variant DataStoreProxy::getKey(const std::string& key) const {
    return call("getKey", Json::Object().add("key", key));
}

void DataStoreProxy::setKey(const std::string& key, const Variant& value) const {
    call("setKey", Json::Object().add("key", key).add("value", value));
}

bool DataStoreProxy::removeKey(const std::string& key) const {
    return static_cast<bool>(call("removeKey", Json::Object().add("key", key)));
}

std::vector<std::string> DataStoreProxy::listKeys(const std::string& prefix) const {
    return call("listKeys", Json::Object().add("prefix", prefix)).toVector<std::string>();
}

} // namespace Zel::Platform
