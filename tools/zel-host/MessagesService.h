#pragma once

#include <Zel/Platform/Service.h>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace ZelHost {

// "Messages": texts posted to named channels, shown on the console and kept for "list".
class MessagesService : public Zel::Platform::Service {
public:
    MessagesService();

private:
    std::mutex m_mutex;
    std::map<std::string, Zel::Variant> m_channels;
    std::int64_t m_nextId = 1;
};

} // namespace ZelHost
