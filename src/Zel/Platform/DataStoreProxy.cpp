#include <Zel/Platform/DataStoreProxy.h>

namespace Zel::Platform {

namespace {

Json::Object& withTransaction(Json::Object& params, std::int64_t transactionId) {
    if (transactionId != 0) params.add("transactionId", transactionId);
    return params;
}

} // namespace

DataStoreProxy::DataStoreProxy(const IServiceCaller& caller) : ServiceProxy(caller, serviceReference) {}
DataStoreProxy::~DataStoreProxy() = default;

Variant DataStoreProxy::getKey(const std::string& key, std::int64_t transactionId) const {
    Json::Object params;
    return call("getKey", withTransaction(params.add("key", key), transactionId));
}

void DataStoreProxy::setKey(const std::string& key, const Variant& value, std::int64_t transactionId) const {
    Json::Object params;
    call("setKey", withTransaction(params.add("key", key).add("value", value), transactionId));
}

bool DataStoreProxy::removeKey(const std::string& key, std::int64_t transactionId) const {
    Json::Object params;
    return static_cast<bool>(call("removeKey", withTransaction(params.add("key", key), transactionId)));
}

std::vector<std::string> DataStoreProxy::listKeys(const std::string& prefix,
                                                  std::int64_t transactionId) const {
    Json::Object params;
    return call("listKeys", withTransaction(params.add("prefix", prefix), transactionId))
        .toVector<std::string>();
}

std::int64_t DataStoreProxy::beginTransaction() const {
    return static_cast<std::int64_t>(call("beginTransaction"));
}

void DataStoreProxy::commitTransaction(std::int64_t transactionId) const {
    call("commitTransaction", Json::Object().add("transactionId", transactionId));
}

void DataStoreProxy::rollbackTransaction(std::int64_t transactionId) const {
    call("rollbackTransaction", Json::Object().add("transactionId", transactionId));
}

} // namespace Zel::Platform
