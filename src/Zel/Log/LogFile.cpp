#include <Zel/Log/LogFile.h>

#include <Zel/GenericException.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <system_error>
#include <utility>

#ifndef _WIN32
#include <unistd.h>
#endif

namespace Zel::Log {

namespace {

// Unbuffered: the sink keeps its own buffer and must see every failure of the write itself.
std::FILE* openFile(const std::filesystem::path& path, bool truncate) noexcept {
#ifdef _WIN32
    std::FILE* file = ::_wfopen(path.c_str(), truncate ? L"wbN" : L"abN");
#else
    std::FILE* file = std::fopen(path.c_str(), truncate ? "wbe" : "abe");
#endif
    if (file != nullptr) std::setvbuf(file, nullptr, _IONBF, 0);
    return file;
}

// Writes all of `text` and returns the number of bytes written; errno tells why when short. On
// POSIX the descriptor is written directly: the stream layer adds nothing to an unbuffered write
// but its own locking and bookkeeping.
std::size_t writeFile(std::FILE* file, std::string_view text) noexcept {
#ifdef _WIN32
    const std::size_t written = std::fwrite(text.data(), 1, text.size(), file);
    std::clearerr(file);
    return written;
#else
    const int descriptor = ::fileno(file);
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        done += static_cast<std::size_t>(written);
    }
    return done;
#endif
}

std::string errorText(int error) {
    return error != 0 ? std::string(std::strerror(error)) : std::string("unknown error");
}

} // namespace

LogFile::LogFile(std::filesystem::path path) : LogFile(std::move(path), Options{}) {}

LogFile::LogFile(std::filesystem::path path, const Options& options)
    : BaseSink(options.minimalLevel), m_path(std::move(path)), m_options(options) {
    std::string error;
    if (!open(false, &error)) {
        throw GenericException("Log file: cannot open | path=" + m_path.string() + " | error=" + error);
    }
    m_buffer.reserve(m_options.bufferSize);
}

LogFile::~LogFile() {
    std::lock_guard lock(mutex());
    writeOut({});
    close();
}

void LogFile::reopen() {
    std::lock_guard lock(mutex());
    writeOut({});
    close();
    std::string error;
    if (!open(false, &error)) {
        reportFailure("Log file: cannot open | path=" + m_path.string() + " | error=" + error);
    }
}

void LogFile::format(const Record& record, std::string& out) const {
    formatStandardLine(record, out, "\r\n");
}

void LogFile::write(const Record& record, std::string_view text) {
    checkExistence(record.time);
    if (m_file == nullptr) {
        reportFailure("Log file: not open, records dropped | path=" + m_path.string());
        return;
    }
    if (m_options.maxFileSize != 0) {
        const std::uint64_t pending = m_fileSize + m_buffer.size();
        if (pending > 0 && pending + text.size() > m_options.maxFileSize) {
            writeOut({});
            rotate();
            if (m_file == nullptr) return;
        }
    }
    if (levelRank(record.level) >= levelRank(m_options.flushLevel)) {
        writeOut(text);
    } else {
        m_buffer += text;
        if (m_buffer.size() >= m_options.bufferSize) writeOut({});
    }
}

void LogFile::flushLocked() {
    writeOut({});
}

void LogFile::writeOut(std::string_view text) {
    // Buffered records go first; an immediate record with nothing buffered needs no copy.
    if (!m_buffer.empty() && !text.empty()) {
        m_buffer += text;
        text = {};
    }
    const std::string_view pending = m_buffer.empty() ? text : std::string_view(m_buffer);
    if (pending.empty()) return;
    if (m_file == nullptr) {
        m_buffer.clear();
        return;
    }
    errno = 0;
    const std::size_t written = writeFile(m_file, pending);
    m_fileSize += written;
    if (written == pending.size()) {
        clearFailure();
    } else {
        const int error = errno;
        reportFailure("Log file: write failed | path=" + m_path.string() + " | error=" + errorText(error));
    }
    m_buffer.clear();
}

void LogFile::checkExistence(std::chrono::system_clock::time_point now) {
    // The record's time saves reading a second clock per line. Records of threads that waited for
    // the lock may be a little older than the last check, and a wall clock set back must not
    // postpone the check: hence the distance either way.
    const auto sinceLastCheck = now - m_lastExistenceCheck;
    const auto interval = m_options.existenceCheckInterval;
    if (sinceLastCheck < interval && sinceLastCheck > -interval) return;
    m_lastExistenceCheck = now;

    std::error_code error;
    if (m_file != nullptr && std::filesystem::exists(m_path, error)) return;
    if (m_file != nullptr) {
        reportFailure("Log file: file removed, opening it again | path=" + m_path.string());
        m_buffer.clear(); // what was buffered belonged to the removed file and its lines are lost anyway
        close();
    }
    std::string openError;
    if (!open(false, &openError)) {
        reportFailure("Log file: cannot open | path=" + m_path.string() + " | error=" + openError);
    }
}

void LogFile::rotate() {
    close();
    std::error_code error;
    bool truncate = true;
    if (m_options.keptFiles > 0) {
        std::filesystem::remove(rotatedPath(m_options.keptFiles), error);
        for (unsigned index = m_options.keptFiles - 1; index >= 1; --index) {
            const std::filesystem::path from = rotatedPath(index);
            if (std::filesystem::exists(from, error))
                std::filesystem::rename(from, rotatedPath(index + 1), error);
        }
        std::filesystem::rename(m_path, rotatedPath(1), error);
        if (error) {
            // Keep the records rather than empty a file that could not be moved aside.
            truncate = false;
            reportFailure("Log file: rotation failed | path=" + m_path.string() +
                          " | error=" + error.message());
        }
    }
    std::string openError;
    if (!open(truncate, &openError)) {
        reportFailure("Log file: cannot open | path=" + m_path.string() + " | error=" + openError);
        return;
    }
    if (!truncate) m_fileSize = 0; // a failed rotation is retried only after another full file
}

bool LogFile::open(bool truncate, std::string* error) {
    std::error_code ignored;
    if (m_path.has_parent_path()) std::filesystem::create_directories(m_path.parent_path(), ignored);
    errno = 0;
    m_file = openFile(m_path, truncate);
    if (m_file == nullptr) {
        if (error != nullptr) *error = errorText(errno);
        return false;
    }
    std::error_code sizeError;
    const std::uintmax_t size = truncate ? 0 : std::filesystem::file_size(m_path, sizeError);
    m_fileSize = sizeError ? 0 : static_cast<std::uint64_t>(size);
    return true;
}

void LogFile::close() noexcept {
    if (m_file != nullptr) {
        std::fclose(m_file);
        m_file = nullptr;
    }
}

std::filesystem::path LogFile::rotatedPath(unsigned index) const {
    std::filesystem::path rotated = m_path;
    std::string number(1, '.');
    number += std::to_string(index);
    if (m_path.has_extension()) {
        rotated.replace_extension(number + m_path.extension().string());
    } else {
        rotated += number;
    }
    return rotated;
}

} // namespace Zel::Log
