#include <Zel/IO/StreamUtils.h>
#include <Zel/Xml/Detail/DocumentData.h>
#include <Zel/Xml/Document.h>
#include <algorithm>

namespace Zel::Xml {

Document::Document() = default;
Document::~Document() = default;
Document::Document(Document&& other) noexcept = default;
Document& Document::operator=(Document&& other) noexcept = default;

Document Document::parse(std::string_view text, const ParseOptions& options) {
    auto data = std::make_unique<Detail::DocumentData>();
    Detail::parse(text, *data, options);
    Document document;
    document.m_data = std::move(data);
    return document;
}

Document Document::parse(IO::IStream& stream, const ParseOptions& options) {
    return parse(IO::readAll(stream), options);
}

Node Document::node() const noexcept {
    return Node(m_data ? &m_data->node : nullptr);
}

Node Document::root() const noexcept {
    if (!m_data) return {};
    return node().child("*");
}

std::string Document::toString(const WriteOptions& options) const {
    std::string out;
    // The written text is about as long as the parsed one: one allocation instead of a dozen.
    if (m_data) out.reserve(m_data->size + m_data->size / 8 + 64);
    if (m_data) Detail::write(m_data->node, out, options.indent, options.declaration);
    return out;
}

void Document::write(IO::IStream& stream, const WriteOptions& options) const {
    const std::string text = toString(options);
    IO::writeAll(stream, text.data(), text.size());
}

} // namespace Zel::Xml
