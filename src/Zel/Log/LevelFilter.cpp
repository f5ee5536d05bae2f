#include <Zel/Log/LevelFilter.h>

#include <Zel/ArgumentException.h>

#include <utility>

namespace Zel::Log {

LevelFilter::LevelFilter(std::shared_ptr<ILog> inner, Level minimalLevel)
    : ILog(minimalLevel), m_inner(std::move(inner)) {
    if (!m_inner) throw ArgumentException("Log level filter: inner log missing");
}

LevelFilter::~LevelFilter() = default;

bool LevelFilter::levelEnabled(Level level) const {
    const Level minimum = minimalLevel();
    return level == minimum || levelGreater(level, minimum);
}

void LevelFilter::log(Level level, const std::string& message, const std::string& data, DataType dataType,
                      const char* file, int line) {
    if (!levelEnabled(level)) return;
    m_inner->log(level, message, data, dataType, file, line);
}

} // namespace Zel::Log
