#pragma once

#include <Zel/IO/AbstractStream.h>

#include <string_view>

namespace Zel::IO {

// A stream over a block of memory that it does not own: the block must outlive the stream and
// never grows. Reads and writes share one position; a write overwrites bytes in place and stops at
// the end of the block. Over const memory the stream is read-only (write throws
// NotSupportedException).
class ZEL_API MemoryStream : public AbstractStream {
public:
    MemoryStream(const void* data, std::size_t size) noexcept
        : m_data(static_cast<const char*>(data)), m_size(size) {}
    MemoryStream(void* data, std::size_t size) noexcept
        : m_data(static_cast<const char*>(data)), m_writable(static_cast<char*>(data)), m_size(size) {}
    explicit MemoryStream(std::string_view bytes) noexcept : MemoryStream(bytes.data(), bytes.size()) {}
    ~MemoryStream() override;

    std::size_t read(void* buffer, std::size_t size) override;
    std::size_t peek(void* buffer, std::size_t size) override;
    std::size_t write(const void* data, std::size_t size) override;

    std::uint32_t capabilities() const override;
    std::int64_t getLength() const override;
    std::int64_t getPosition() const override;
    // ArgumentException "Stream: position out of range | position=... | length=..." outside
    // 0..getLength().
    void setPosition(std::int64_t position) override;

    void setEof() override;
    std::int64_t copyTo(IStream& target) override;

    // The bytes from the position to the end.
    std::string_view unread() const noexcept { return {m_data + m_position, m_size - m_position}; }

private:
    const char* m_data;
    char* m_writable = nullptr;
    std::size_t m_size;
    std::size_t m_position = 0;
};

} // namespace Zel::IO
