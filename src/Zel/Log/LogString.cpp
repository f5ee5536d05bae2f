#include <Zel/Log/LogString.h>

#include <mutex>

namespace Zel::Log {

LogString::LogString(Level minimalLevel) : BaseSink(minimalLevel) {}

LogString::~LogString() = default;

void LogString::format(const Record&, std::string&) const {
    // Records are kept whole; text() formats on demand.
}

void LogString::write(const Record& record, std::string_view) {
    Entry entry;
    entry.level = record.level;
    entry.dataType = record.dataType;
    entry.message = record.message;
    entry.data = record.data;
    if (record.file != nullptr) entry.file = record.file;
    entry.line = record.line;
    entry.time = record.time;
    entry.threadId = record.threadId;
    entry.subsystem = record.subsystem;
    entry.context = record.context;
    m_entries.push_back(std::move(entry));
}

std::vector<LogString::Entry> LogString::entries() const {
    std::lock_guard lock(mutex());
    return m_entries;
}

std::vector<std::string> LogString::messages() const {
    std::lock_guard lock(mutex());
    std::vector<std::string> result;
    result.reserve(m_entries.size());
    for (const Entry& entry : m_entries)
        result.push_back(entry.message);
    return result;
}

std::size_t LogString::size() const {
    std::lock_guard lock(mutex());
    return m_entries.size();
}

bool LogString::contains(std::string_view fragment) const {
    std::lock_guard lock(mutex());
    for (const Entry& entry : m_entries) {
        if (entry.message.find(fragment) != std::string::npos) return true;
    }
    return false;
}

std::string LogString::text() const {
    std::lock_guard lock(mutex());
    std::string result;
    for (const Entry& entry : m_entries) {
        result += levelName(entry.level);
        result += ": ";
        result += entry.message;
        if (!entry.data.empty()) {
            result += " | data=";
            result += entry.data;
        }
        result += '\n';
    }
    return result;
}

void LogString::clear() {
    std::lock_guard lock(mutex());
    m_entries.clear();
}

} // namespace Zel::Log
