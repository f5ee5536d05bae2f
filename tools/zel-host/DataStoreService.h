#pragma once

#include <Zel/Platform/Service.h>
#include <map>
#include <mutex>
#include <string>

namespace ZelHost {

// "DataStore": an in-memory key-value store of JSON values, for the life of the host process.
class DataStoreService : public Zel::Platform::Service {
public:
    DataStoreService();

private:
    std::mutex m_mutex;
    std::map<std::string, Zel::Variant> m_values;
};

} // namespace ZelHost
