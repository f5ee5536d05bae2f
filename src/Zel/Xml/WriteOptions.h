#pragma once

#include <string>

namespace Zel::Xml {

// How Document::toString and Document::write lay out the text.
struct WriteOptions {
    // Starts the text with <?xml version="1.0" encoding="UTF-8"?>.
    bool declaration = true;
    // Put before each level of nesting; empty writes everything on one line. Elements holding
    // text or CDATA keep their content inline so that indenting never changes a text.
    std::string indent;
};

} // namespace Zel::Xml
