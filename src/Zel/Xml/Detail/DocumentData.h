#pragma once

#include <Zel/Xml/Detail/Arena.h>
#include <Zel/Xml/Detail/NodeData.h>
#include <Zel/Xml/ParseOptions.h>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Zel::Xml::Detail {

struct DocumentData {
    std::unique_ptr<char[]> text; // the copy that names and values point into
    std::size_t size = 0;         // of the text parsed
    Arena arena;
    NodeData node{};
};

// Parses `source` into `document` (whose node must be fresh); throws XmlException.
void parse(std::string_view source, DocumentData& document, const ParseOptions& options);

void write(const NodeData& node, std::string& out, const std::string& indent, bool declaration);

} // namespace Zel::Xml::Detail
