#include <Zel/IO/FileStream.h>

#include <Zel/ArgumentException.h>
#include <Zel/IO/IOException.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace Zel::IO {

namespace {

std::FILE* openFile(const std::filesystem::path& path, FileStream::Mode mode) noexcept {
#ifdef _WIN32
    const wchar_t* flags = mode == FileStream::Mode::Read     ? L"rbN"
                           : mode == FileStream::Mode::Write  ? L"wbN"
                           : mode == FileStream::Mode::Append ? L"abN"
                                                              : L"r+bN";
    return ::_wfopen(path.c_str(), flags);
#else
    const char* flags = mode == FileStream::Mode::Read     ? "rbe"
                        : mode == FileStream::Mode::Write  ? "wbe"
                        : mode == FileStream::Mode::Append ? "abe"
                                                           : "r+be";
    return std::fopen(path.c_str(), flags);
#endif
}

int seekFile(std::FILE* file, std::int64_t offset, int origin) noexcept {
#ifdef _WIN32
    return ::_fseeki64(file, offset, origin);
#else
    return ::fseeko(file, static_cast<off_t>(offset), origin);
#endif
}

std::int64_t tellFile(std::FILE* file) noexcept {
#ifdef _WIN32
    return ::_ftelli64(file);
#else
    return static_cast<std::int64_t>(::ftello(file));
#endif
}

std::string errorText(int error) {
    return error != 0 ? std::string(std::strerror(error)) : std::string("unknown error");
}

} // namespace

FileStream::FileStream(const std::filesystem::path& path, Mode mode) : m_path(path) {
    m_file = openFile(path, mode);
    if (m_file == nullptr) {
        throw IOException("File stream: cannot open | path=" + path.string() +
                          " | error=" + errorText(errno));
    }
    m_capabilities = mode == Mode::Read                            ? Readable
                     : mode == Mode::Write || mode == Mode::Append ? Writable
                                                                   : Readable | Writable;
    // Only a file that can be positioned can be peeked (read, then stepped back) and measured.
    if (tellFile(m_file) >= 0 && seekFile(m_file, 0, SEEK_CUR) == 0) {
        m_capabilities |= Seekable | LengthKnown | ((m_capabilities & Readable) != 0 ? Peekable : 0u);
    }
}

FileStream::~FileStream() {
    if (m_file != nullptr) std::fclose(m_file);
}

void FileStream::fail(const char* what) const {
    throw IOException(std::string("File stream: ") + what + " | path=" + m_path.string() +
                      " | error=" + errorText(errno));
}

void FileStream::switchTo(LastOperation operation) {
    if (m_last != LastOperation::None && m_last != operation && (m_capabilities & Seekable) != 0) {
        seekFile(m_file, 0, SEEK_CUR);
    }
    m_last = operation;
}

std::size_t FileStream::read(void* buffer, std::size_t size) {
    if ((m_capabilities & Readable) == 0) throwNotSupported("read");
    if (m_eof || size == 0) return 0;
    switchTo(LastOperation::Read);
    const std::size_t count = std::fread(buffer, 1, size, m_file);
    if (count < size && std::ferror(m_file)) {
        std::clearerr(m_file);
        if (count == 0) fail("read failed");
    }
    // The end-of-file mark would stop reads of bytes that another writer appends later.
    std::clearerr(m_file);
    return count;
}

std::size_t FileStream::peek(void* buffer, std::size_t size) {
    if ((m_capabilities & Peekable) == 0) throwNotSupported("peek");
    const std::int64_t position = getPosition();
    const std::size_t count = read(buffer, size);
    if (count != 0 && seekFile(m_file, position, SEEK_SET) != 0) fail("seek failed");
    return count;
}

std::size_t FileStream::write(const void* data, std::size_t size) {
    if ((m_capabilities & Writable) == 0) throwNotSupported("write");
    switchTo(LastOperation::Write);
    const std::size_t count = std::fwrite(data, 1, size, m_file);
    if (count < size) {
        std::clearerr(m_file);
        if (count == 0 && size != 0) fail("write failed");
    }
    return count;
}

void FileStream::flush() {
    if (std::fflush(m_file) != 0) fail("flush failed");
}

std::uint32_t FileStream::capabilities() const {
    return m_capabilities;
}

std::int64_t FileStream::getLength() const {
    if ((m_capabilities & LengthKnown) == 0) return -1;
    // Written bytes may still sit in the C library's buffer.
    std::fflush(m_file);
    const std::int64_t position = tellFile(m_file);
    if (seekFile(m_file, 0, SEEK_END) != 0) return -1;
    const std::int64_t length = tellFile(m_file);
    seekFile(m_file, position, SEEK_SET);
    return length;
}

std::int64_t FileStream::getPosition() const {
    return (m_capabilities & Seekable) != 0 ? tellFile(m_file) : -1;
}

void FileStream::setPosition(std::int64_t position) {
    if ((m_capabilities & Seekable) == 0) throwNotSupported("setPosition");
    if (position < 0) {
        throw ArgumentException("Stream: position out of range | position=" + std::to_string(position) +
                                " | length=" + std::to_string(getLength()));
    }
    if (seekFile(m_file, position, SEEK_SET) != 0) fail("seek failed");
    m_last = LastOperation::None;
    m_eof = false;
}

void FileStream::setEof() {
    m_eof = true;
}

} // namespace Zel::IO
