#include <Zel/Log/EventLog.h>

#include <Zel/GenericException.h>
#include <Zel/Log/Masking.h>
#include <Zel/NotSupportedException.h>

#include <mutex>
#include <set>
#include <utility>

#ifdef _WIN32
#include <windows.h>
#include <winevt.h>
#pragma comment(lib, "wevtapi.lib")
#else
#include <syslog.h>
#endif

namespace Zel::Log {

namespace {

#ifdef _WIN32

std::wstring widen(std::string_view text) {
    const int size =
        ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(size), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), size);
    return wide;
}

// Returns an error text, empty on success.
std::string reportToSystemLog(const std::string& source, Level level, const std::string& text) {
    HANDLE handle = ::RegisterEventSourceW(nullptr, widen(source).c_str());
    if (handle == nullptr) return "RegisterEventSource failed | code=" + std::to_string(::GetLastError());
    const WORD type = level == Level::Error || level == Level::Critical ? EVENTLOG_ERROR_TYPE
                      : level == Level::Warning                         ? EVENTLOG_WARNING_TYPE
                                                                        : EVENTLOG_INFORMATION_TYPE;
    const std::wstring wide = widen(text);
    LPCWSTR strings[] = {wide.c_str()};
    const BOOL reported = ::ReportEventW(handle, type, 0, 0, nullptr, 1, 0, strings, nullptr);
    const DWORD code = ::GetLastError();
    ::DeregisterEventSource(handle);
    return reported ? std::string() : "ReportEvent failed | code=" + std::to_string(code);
}

void exportSystemLog(const std::string& source, const std::filesystem::path& target) {
    const std::wstring query = L"*[System/Provider[@Name='" + widen(source) + L"']]";
    if (!::EvtExportLog(nullptr, L"Application", query.c_str(), target.c_str(), EvtExportLogChannelPath)) {
        throw GenericException("Event log: export failed | path=" + target.string() +
                               " | code=" + std::to_string(::GetLastError()));
    }
}

#else

std::mutex syslogMutex;

std::string reportToSystemLog(const std::string& source, Level level, const std::string& text) {
    // openlog keeps the identity pointer, so every identity ever used stays alive here.
    static std::set<std::string, std::less<>> identities;
    static const std::string* current = nullptr;

    int priority = LOG_INFO;
    switch (level) {
    case Level::Critical:
        priority = LOG_CRIT;
        break;
    case Level::Error:
        priority = LOG_ERR;
        break;
    case Level::Warning:
        priority = LOG_WARNING;
        break;
    case Level::Notice:
        priority = LOG_NOTICE;
        break;
    case Level::Info:
        priority = LOG_INFO;
        break;
    case Level::Debug:
    case Level::Trace:
        priority = LOG_DEBUG;
        break;
    }
    std::lock_guard lock(syslogMutex);
    const std::string& identity = *identities.insert(source).first;
    if (current != &identity) {
        ::openlog(identity.c_str(), LOG_PID, LOG_USER);
        current = &identity;
    }
    ::syslog(priority, "%s", text.c_str());
    return {}; // syslog(3) does not tell whether the daemon took the message
}

void exportSystemLog(const std::string&, const std::filesystem::path&) {
    throw NotSupportedException("Event log: export not supported on this platform");
}

#endif

} // namespace

EventLog::EventLog(std::string source, Level minimalLevel)
    : BaseSink(minimalLevel), m_source(std::move(source)) {}

EventLog::~EventLog() = default;

void EventLog::setEventSource(std::string source) {
    std::lock_guard lock(mutex());
    m_source = std::move(source);
}

std::string EventLog::eventSource() const {
    std::lock_guard lock(mutex());
    return m_source;
}

void EventLog::report(Level level, const std::string& message, const std::string& data, DataType dataType,
                      const char* file, int line) {
    levelRank(level);
    logUnfiltered(level, message, data, dataType, file, line);
}

std::string EventLog::reportText(DataType dataType, std::string_view message, const char* file, int line,
                                 std::string_view data) {
    std::string text = "TYPE: ";
    text += dataTypeName(dataType);
    text += "\n\nMESSAGE: ";
    text += message;
    text += "\n\nFILE: ";
    if (file != nullptr) text += file;
    text += " (";
    text += std::to_string(line);
    text += ")\n\nDATA:\n";
    text += data;
    return text;
}

void EventLog::exportEvents(const std::filesystem::path& target) const {
    exportSystemLog(eventSource(), target);
}

void EventLog::format(const Record& record, std::string& out) const {
    if (record.dataType == DataType::Json) {
        out = reportText(record.dataType, record.message, record.file, record.line,
                         hidePrivateStringInJson(record.data));
    } else {
        out = reportText(record.dataType, record.message, record.file, record.line, record.data);
    }
}

void EventLog::write(const Record& record, std::string_view text) {
    const std::string error = reportToSystemLog(m_source, record.level, std::string(text));
    if (error.empty()) {
        clearFailure();
    } else {
        reportFailure("Event log: report failed | source=" + m_source + " | error=" + error);
    }
}

} // namespace Zel::Log
