#pragma once

#include <Zel/IO/AbstractStream.h>

#include <cstdio>
#include <filesystem>

namespace Zel::IO {

// A stream over a file of the file system, with one position for reads and writes (the C
// library's buffering underneath). Seekable, peekable and of known length when the file is a
// regular file; a pipe or device offers only reading and writing.
//
// Failures throw IOException: "File stream: cannot open | path=... | error=..." from the
// constructor, "File stream: read failed | ..." and "File stream: write failed | ..." later.
class ZEL_API FileStream : public AbstractStream {
public:
    enum class Mode {
        Read,      // an existing file, from its start
        Write,     // created or emptied
        Append,    // created if missing; every write goes to the end
        ReadWrite, // an existing file, from its start
    };

    explicit FileStream(const std::filesystem::path& path, Mode mode = Mode::Read);
    ~FileStream() override;
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    std::size_t read(void* buffer, std::size_t size) override;
    std::size_t peek(void* buffer, std::size_t size) override;
    std::size_t write(const void* data, std::size_t size) override;
    void flush() override;

    std::uint32_t capabilities() const override;
    std::int64_t getLength() const override;
    std::int64_t getPosition() const override;
    // ArgumentException for a negative position; a position past the end is allowed (a later
    // write fills the gap with zero bytes).
    void setPosition(std::int64_t position) override;

    void setEof() override;

    const std::filesystem::path& path() const noexcept { return m_path; }

private:
    // The C library demands a positioning call between a write and a following read and the
    // other way round.
    enum class LastOperation { None, Read, Write };
    void switchTo(LastOperation operation);
    [[noreturn]] void fail(const char* what) const;

    std::filesystem::path m_path;
    std::FILE* m_file = nullptr;
    std::uint32_t m_capabilities = 0;
    LastOperation m_last = LastOperation::None;
    bool m_eof = false;
};

} // namespace Zel::IO
