#pragma once

#include <Zel/Export.h>
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
    // The placeholder shown in --help ("<file>"); defaults to the type's name.
    Option& valueName(std::string name);

    const std::string& longName() const noexcept { return m_longName; }
    char shortNameChar() const noexcept { return m_shortName; }
    ValueType type() const noexcept { return m_type; }
    const std::string& help() const noexcept { return m_help; }
    const std::optional<std::string>& defaultText() const noexcept { return m_default; }
    bool isRequired() const noexcept { return m_required; }
    std::string placeholder() const;

private:
    std::string m_longName;
    char m_shortName = 0;
    ValueType m_type;
    std::string m_help;
    std::optional<std::string> m_default;
    bool m_required = false;
    std::string m_valueName;
};

} // namespace Zel::Console
