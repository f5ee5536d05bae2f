#pragma once

#include <Zel/IO/IStream.h>

namespace Zel::IO {

// Common base of the library's streams: every operation a stream may lack throws
// NotSupportedException "Stream: operation not supported | operation=...", getLength and
// getPosition return -1, flush and setEof do nothing, and copyTo reads through a 16 KiB buffer.
class ZEL_API AbstractStream : public IStream {
public:
    ~AbstractStream() override;

    std::size_t read(void* buffer, std::size_t size) override;
    std::size_t peek(void* buffer, std::size_t size) override;
    std::size_t write(const void* data, std::size_t size) override;
    void flush() override;

    std::uint32_t capabilities() const override;
    std::int64_t getLength() const override;
    std::int64_t getPosition() const override;
    void setPosition(std::int64_t position) override;

    void setEof() override;
    std::int64_t copyTo(IStream& target) override;

protected:
    AbstractStream() = default;
    AbstractStream(const AbstractStream&) = default;
    AbstractStream& operator=(const AbstractStream&) = default;

    [[noreturn]] static void throwNotSupported(const char* operation);
};

} // namespace Zel::IO
