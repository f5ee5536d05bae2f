#pragma once

#include <cstdint>

namespace Zel::Xml {

// What a Node is. A default-constructed (null) Node reports Null.
enum class NodeType : std::uint8_t {
    Null,
    Document,              // the invisible parent of the root element and of top-level comments and PIs
    Element,               // name(), attributes and children
    Text,                  // value() with entities and character references decoded
    CData,                 // value() exactly as written between <![CDATA[ and ]]>
    Comment,               // value() between <!-- and -->
    ProcessingInstruction, // name() is the target, value() the data
};

} // namespace Zel::Xml
