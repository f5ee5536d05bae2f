#include <Zel/Log/LogNull.h>

namespace Zel::Log {

LogNull::LogNull() = default;

LogNull::~LogNull() = default;

bool LogNull::levelEnabled(Level level) const {
    levelRank(level); // an invalid level is rejected here as by every other sink
    return false;
}

void LogNull::log(Level level, const std::string&, const std::string&, DataType, const char*, int) {
    levelRank(level);
}

} // namespace Zel::Log
