#include <Zel/GenericException.h>
#include <Zel/Xml/Document.h>
#include <Zel/Xml/XmlException.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// Parses the input under tight limits. Only XmlException may come out; a document that parses is
// written, parsed again and written again, and both texts must agree: the writer escapes whatever
// the parser decoded.

namespace {

Zel::Xml::ParseOptions limits() {
    Zel::Xml::ParseOptions options;
    options.maxDepth = 64;
    options.maxEntityExpansion = 4096;
    return options;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string first;
    try {
        first = Zel::Xml::Document::parse(text, limits()).toString({false, ""});
    } catch (const Zel::Xml::XmlException&) {
        return 0;
    }
    std::string second;
    try {
        second = Zel::Xml::Document::parse(first, limits()).toString({false, ""});
    } catch (const Zel::Xml::XmlException& error) {
        std::fprintf(stderr, "written text does not parse: %s\n%s\n", error.what(), first.c_str());
        std::abort();
    }
    if (first != second) {
        std::fprintf(stderr, "round trip differs:\n%s\n---\n%s\n", first.c_str(), second.c_str());
        std::abort();
    }
    return 0;
}
