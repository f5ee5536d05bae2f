#pragma once

#include <Zel/Config/ISource.h>
#include <filesystem>

namespace Zel::Config {

// An XML file: the root element's name is ignored; every element below it becomes a key, a map when
// it has child elements or attributes, its value when it has only text; attributes are keys too, and
// an element name repeated among siblings becomes a list.
//
//     <config threads="8">
//       <database><connection>DRIVER=SQLite3;Database=x.db</connection></database>
//       <plugins>notes.so</plugins><plugins>reminders.so</plugins>
//     </config>
//
// reads as {"threads": 8, "database": {"connection": "..."}, "plugins": ["notes.so", "reminders.so"]}.
// Text and attribute values are read as JSON when they are valid JSON and as text otherwise.
class ZEL_API XmlFileSource : public ISource {
public:
    explicit XmlFileSource(std::filesystem::path path);
    ~XmlFileSource() override;

    std::string name() const override;
    // ConfigException "Config: cannot read the file", "Config: malformed XML" (with the parser's
    // text, line and column) or "Config: mixed text and elements | element=<name>", each with
    // " | source=<path>".
    Variant read() const override;

private:
    std::filesystem::path m_path;
};

} // namespace Zel::Config
