#pragma once

#include <Zel/Export.h>
#include <Zel/Xml/Node.h>
#include <Zel/Xml/ParseOptions.h>
#include <Zel/Xml/WriteOptions.h>
#include <memory>
#include <string>
#include <string_view>

namespace Zel::IO {
class IStream;
}

namespace Zel::Xml {

namespace Detail {
struct DocumentData;
}

// A parsed XML document (UTF-8; a byte order mark is skipped, other encodings are refused).
//
// The document keeps one copy of the text and decodes entities in place, so the names and values
// that Nodes hand out are views into memory the document owns: they stay valid while the document
// lives, and moving the document does not move them. Nothing is read besides the text given: no
// DTD, no external entity (see ParseOptions for the limits).
//
// What is kept: elements, attributes, text, CDATA sections, comments and processing instructions
// (the latter two optionally). The XML declaration and the DOCTYPE are consumed, not kept;
// entities they declare are expanded where used, and default attribute values from an ATTLIST are
// not applied.
//
// Thread safety: a document is immutable once parsed; concurrent readers are fine.
class ZEL_API Document {
public:
    // An empty document: root() is null.
    Document();
    ~Document();
    Document(Document&& other) noexcept;
    Document& operator=(Document&& other) noexcept;

    // Throws XmlException when the text is not well-formed or breaks a limit of `options`.
    static Document parse(std::string_view text, const ParseOptions& options = {});
    // Reads the stream to its end first.
    static Document parse(IO::IStream& stream, const ParseOptions& options = {});

    // The document node: parent of the root element and of comments and PIs around it.
    Node node() const noexcept;
    // The root element.
    Node root() const noexcept;

    // The document as text, escaped so that parsing it gives the same tree.
    std::string toString(const WriteOptions& options = {}) const;
    void write(IO::IStream& stream, const WriteOptions& options = {}) const;

private:
    std::unique_ptr<Detail::DocumentData> m_data;
};

} // namespace Zel::Xml
