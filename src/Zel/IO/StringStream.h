#pragma once

#include <Zel/IO/AbstractStream.h>

#include <string>
#include <string_view>

namespace Zel::IO {

// A stream over a string it owns, like a pipe in memory: writes append at the end, reads consume
// from the read position, which setPosition moves. getLength is the size of the whole text,
// getPosition the read position.
class ZEL_API StringStream : public AbstractStream {
public:
    StringStream() = default;
    explicit StringStream(std::string text) : m_text(std::move(text)) {}
    explicit StringStream(std::string_view text) : m_text(text) {}
    explicit StringStream(const char* text) : m_text(text) {}
    ~StringStream() override;

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

    // The whole text, read or not.
    const std::string& str() const noexcept { return m_text; }
    // The text not read yet.
    std::string_view unread() const noexcept { return std::string_view(m_text).substr(m_position); }
    // Hands the whole text over and leaves the stream empty.
    std::string take();
    void clear() noexcept;

private:
    std::string m_text;
    std::size_t m_position = 0;
};

} // namespace Zel::IO
