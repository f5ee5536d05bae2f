#pragma once

#include <Zel/Export.h>
#include <Zel/Log/ILog.h>

namespace Zel::Log {

// Drops every record. levelEnabled is always false, so the ZEL_LOG_... macros skip building the
// message altogether: hand this to a component whose output is of no interest.
//
// Thread safety: stateless; any number of threads may call it.
class ZEL_API LogNull : public ILog {
public:
    LogNull();
    ~LogNull() override;

    bool levelEnabled(Level level) const override;
    void log(Level level, const std::string& message, const std::string& data, DataType dataType,
             const char* file, int line) override;
};

} // namespace Zel::Log
