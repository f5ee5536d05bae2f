#pragma once

#include <Zel/Export.h>
#include <Zel/Log/ILog.h>

#include <memory>

namespace Zel::Log {

// Passes to an inner log only the records at its minimal level or more severe; the minimum can be
// changed later through setMinimalLevel. Several filters may share one inner log, each with its own
// minimum (a verbose file beside a quiet console, for instance).
//
// Thread safety: as safe as the inner log; the filter itself holds no lock.
class ZEL_API LevelFilter : public ILog {
public:
    // ArgumentException "Log level filter: inner log missing" when `inner` is null.
    LevelFilter(std::shared_ptr<ILog> inner, Level minimalLevel);
    ~LevelFilter() override;

    // True when `level` is the minimum or levelGreater(level, minimum).
    bool levelEnabled(Level level) const override;
    void log(Level level, const std::string& message, const std::string& data, DataType dataType,
             const char* file, int line) override;

    const std::shared_ptr<ILog>& inner() const noexcept { return m_inner; }

private:
    std::shared_ptr<ILog> m_inner;
};

} // namespace Zel::Log
