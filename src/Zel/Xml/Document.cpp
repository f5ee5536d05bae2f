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
    // Typical markup needs roughly its own size again in nodes; sizing the first block from the
    // text saves the small blocks a fixed start would go through.
    const std::size_t firstBlock = std::clamp<std::size_t>(text.size(), 4096, 8 * 1024 * 1024);
    auto data = std::make_unique<Detail::DocumentData>(firstBlock);
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
    if (m_data) Detail::write(m_data->node, out, options.indent, options.declaration);
    return out;
}

void Document::write(IO::IStream& stream, const WriteOptions& options) const {
    const std::string text = toString(options);
    IO::writeAll(stream, text.data(), text.size());
}

} // namespace Zel::Xml
