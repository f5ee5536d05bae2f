#pragma once

#include <cstddef>

namespace Zel::Xml {

// Limits and choices of Document::parse. The defaults are safe for untrusted input: no file or
// URL is ever opened (an external DTD named by a DOCTYPE is ignored, an external entity refused),
// and internal entities declared in a DOCTYPE may expand to at most maxEntityExpansion bytes per
// document, which stops the "billion laughs" family within microseconds.
struct ParseOptions {
    // Elements nested deeper than this are refused.
    std::size_t maxDepth = 256;
    // Bytes that all uses of DOCTYPE-declared entities together may produce; 0 forbids their use.
    std::size_t maxEntityExpansion = 1024 * 1024;
    // When false any DOCTYPE is refused.
    bool allowDoctype = true;
    bool keepComments = true;
    bool keepProcessingInstructions = true;
    // Text nodes made of white space only (the indentation between elements) are dropped unless set.
    bool keepWhitespaceText = false;
};

} // namespace Zel::Xml
