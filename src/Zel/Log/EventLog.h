#pragma once

#include <Zel/Export.h>
#include <Zel/Log/BaseSink.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace Zel::Log {

// Reports records to the system log under an event source name: the Windows event log
// (Application), or syslog (facility user) elsewhere. The event's kind follows the level (error,
// warning or information; the syslog priorities crit, err, warning, notice, info and debug) and its
// text is reportText() of the record, JSON data masked of its secrets.
//
// The system log is for what an operator must see; the default minimal level is Warning.
//
// Thread safety: any number of threads may log at once. On Linux the syslog identity is
// process-wide, so reports are serialised across all EventLog objects.
class ZEL_API EventLog : public BaseSink {
public:
    explicit EventLog(std::string source = "Zel", Level minimalLevel = Level::Warning);
    ~EventLog() override;

    void setEventSource(std::string source);
    std::string eventSource() const;

    // Writes one event whatever the minimal level.
    void report(Level level, const std::string& message, const std::string& data, DataType dataType,
                const char* file, int line);

    // "TYPE: <data type>\n\nMESSAGE: <message>\n\nFILE: <file> (<line>)\n\nDATA:\n<data>"; a null
    // file shows as empty.
    static std::string reportText(DataType dataType, std::string_view message, const char* file, int line,
                                  std::string_view data);

    // Copies this source's events from the Application event log into an .evtx file (Windows).
    // Elsewhere the system log belongs to the system's own tools: NotSupportedException.
    void exportEvents(const std::filesystem::path& target) const;

protected:
    void format(const Record& record, std::string& out) const override;
    void write(const Record& record, std::string_view text) override;

private:
    std::string m_source;
};

} // namespace Zel::Log
