#pragma once

#include "Database.h"

#include <Zel/Platform/Service.h>
#include <memory>

namespace ZelHost {

// "Messages": texts posted to named channels, shown on the console and kept in the host's database.
class MessagesService : public Zel::Platform::Service {
public:
    explicit MessagesService(std::shared_ptr<Database> database);

private:
    std::shared_ptr<Database> m_database;
};

} // namespace ZelHost
