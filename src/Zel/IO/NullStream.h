#pragma once

#include <Zel/IO/AbstractStream.h>

namespace Zel::IO {

// The empty stream: reads yield nothing, writes are taken and dropped, the length is 0. An HTTP
// message without a body holds one.
class ZEL_API NullStream : public AbstractStream {
public:
    NullStream() = default;
    ~NullStream() override;

    std::size_t read(void* buffer, std::size_t size) override;
    std::size_t peek(void* buffer, std::size_t size) override;
    std::size_t write(const void* data, std::size_t size) override;

    std::uint32_t capabilities() const override;
    std::int64_t getLength() const override;
    std::int64_t getPosition() const override;
    void setPosition(std::int64_t position) override;
    std::int64_t copyTo(IStream& target) override;
};

} // namespace Zel::IO
