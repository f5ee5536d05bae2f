#pragma once

#include <Zel/Export.h>
#include <Zel/Log/BaseSink.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Log {

// Keeps every record in memory: what a test hands to a component to see what it reported.
//
// Thread safety: records may arrive from any number of threads; the readers return copies taken
// under the sink's lock, so they may run while others log.
class ZEL_API LogString : public BaseSink {
public:
    struct Entry {
        Level level = Level::Info;
        DataType dataType = DataType::Text;
        std::string message;
        std::string data;
        std::string file;
        int line = 0;
        std::chrono::system_clock::time_point time;
        std::uint64_t threadId = 0;
        int subsystem = 0;
        std::string context;
    };

    explicit LogString(Level minimalLevel = Level::Trace);
    ~LogString() override;

    std::vector<Entry> entries() const;
    std::vector<std::string> messages() const;
    std::size_t size() const;
    // True when some record's message contains `fragment`.
    bool contains(std::string_view fragment) const;
    // One line per record, "Warning: message" followed by " | data=..." when there is data.
    std::string text() const;
    void clear();

protected:
    void format(const Record& record, std::string& out) const override;
    void write(const Record& record, std::string_view text) override;

private:
    std::vector<Entry> m_entries;
};

} // namespace Zel::Log
