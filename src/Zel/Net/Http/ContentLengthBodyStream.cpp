#include <Zel/ArgumentException.h>
#include <Zel/IO/BufferedStream.h>
#include <Zel/Net/Http/ContentLengthBodyStream.h>
#include <algorithm>
#include <typeinfo>
#include <utility>

namespace Zel::Net::Http {

ContentLengthBodyStream::ContentLengthBodyStream(std::shared_ptr<IO::IStream> source, std::int64_t length)
    : m_length(length), m_source(std::move(source)) {
    if (!m_source) throw ArgumentException("Content-length body: no source stream");
    const IO::IStream& sourceStream = *m_source; // typeid of a plain reference: no expression to evaluate
    m_bufferedSource = typeid(sourceStream) == typeid(IO::BufferedStream)
                           ? static_cast<IO::BufferedStream*>(m_source.get())
                           : nullptr;
}

ContentLengthBodyStream::~ContentLengthBodyStream() = default;

std::size_t ContentLengthBodyStream::limit(std::size_t size) const noexcept {
    const std::int64_t left = m_length - m_position;
    if (left <= 0) return 0;
    return static_cast<std::uint64_t>(left) < size ? static_cast<std::size_t>(left) : size;
}

std::size_t ContentLengthBodyStream::read(void* buffer, std::size_t size) {
    const std::size_t wanted = limit(size);
    if (wanted == 0) return 0;
    const std::size_t count = m_source->read(buffer, wanted);
    m_position += static_cast<std::int64_t>(count);
    return count;
}

std::size_t ContentLengthBodyStream::peek(void* buffer, std::size_t size) {
    const std::size_t wanted = limit(size);
    return wanted == 0 ? 0 : m_source->peek(buffer, wanted);
}

std::size_t ContentLengthBodyStream::write(const void*, std::size_t) {
    return 0;
}

std::uint32_t ContentLengthBodyStream::capabilities() const {
    return Readable | Peekable | LengthKnown;
}

std::optional<std::string_view> ContentLengthBodyStream::bufferedRest() const noexcept {
    if (m_bufferedSource == nullptr) return std::nullopt;
    const std::int64_t left = std::max<std::int64_t>(m_length - m_position, 0);
    const auto held =
        static_cast<std::uint64_t>(m_bufferedSource->bufferedEnd() - m_bufferedSource->bufferedBegin());
    if (static_cast<std::uint64_t>(left) > held) return std::nullopt;
    return std::string_view(m_bufferedSource->bufferedBegin(), static_cast<std::size_t>(left));
}

void ContentLengthBodyStream::consumeBufferedRest() noexcept {
    if (const auto rest = bufferedRest()) {
        m_bufferedSource->consume(rest->data() + rest->size());
        m_position += static_cast<std::int64_t>(rest->size());
    }
}

void ContentLengthBodyStream::setEof() {
    m_length = m_position;
}

} // namespace Zel::Net::Http
