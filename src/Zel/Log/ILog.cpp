#include <Zel/Log/ILog.h>

namespace Zel::Log {

ILog::ILog(Level minimalLevel) : m_minimalLevel(minimalLevel) {
    levelRank(minimalLevel); // rejects a level outside the enumeration before anything uses it
}

ILog::~ILog() = default;

bool ILog::levelEnabled(Level level) const {
    return levelRank(level) >= levelRank(minimalLevel());
}

void ILog::setMinimalLevel(Level level) {
    levelRank(level);
    m_minimalLevel.store(level, std::memory_order_relaxed);
}

} // namespace Zel::Log
