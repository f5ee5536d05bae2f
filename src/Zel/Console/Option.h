#pragma once

#include <Zel/Export.h>
#include <cstddef>
#include <optional>
#include <string>

namespace Zel::Console {

enum class ValueType {
    Flag, // no value: present or not
    String,
    Integer, // signed 64-bit, decimal
    Double,
    Boolean, // true/false, yes/no, on/off, 1/0
    List     // a string per occurrence, in order
};

// One declared option of a CommandLine. Declared through CommandLine::option(), then refined with
// the fluent setters:
//     cli.option("port", ValueType::Integer, "Port to listen on").shortName('p').defaultValue("8080");
class ZEL_API Option {
public:
    Option(std::string longName, ValueType type, std::string help);

    Option& shortName(char name);
    // Text; checked against the type when the command line is parsed.
    Option& defaultValue(std::string value);
    Option& required(bool isRequired = true);
    // The placeholder shown in --help ("<file>"); defaults to the type's name. An option taking
    // several values names each, separated by spaces: "target json" shows "<target> [<json>]".
    Option& valueName(std::string name);
    // For a List option: each occurrence takes from minimum to maximum values, those past the
    // minimum only while the next argument is not an option, so that "--call S.O {json}" and
    // "--call S.O --echo" both parse. Arguments::occurrences() keeps each occurrence's values
    // together. ArgumentException "Invalid value count | option=--name" for another type, a minimum
    // of 0 or a maximum below the minimum.
    Option& valueCount(std::size_t minimum, std::size_t maximum);

    const std::string& longName() const noexcept { return m_longName; }
    char shortNameChar() const noexcept { return m_shortName; }
    ValueType type() const noexcept { return m_type; }
    const std::string& help() const noexcept { return m_help; }
    const std::optional<std::string>& defaultText() const noexcept { return m_default; }
    bool isRequired() const noexcept { return m_required; }
    std::size_t minimumValues() const noexcept { return m_minimumValues; }
    std::size_t maximumValues() const noexcept { return m_maximumValues; }
    std::string placeholder() const;

private:
    std::string m_longName;
    char m_shortName = 0;
    ValueType m_type;
    std::string m_help;
    std::optional<std::string> m_default;
    bool m_required = false;
    std::string m_valueName;
    std::size_t m_minimumValues = 1;
    std::size_t m_maximumValues = 1;
};

} // namespace Zel::Console
