#pragma once

#include <Zel/Console/Option.h>
#include <Zel/Export.h>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Zel::Console {

// The parsed command line: option values by long name (given or defaulted), positional arguments
// and the chosen sub-command. Getters of an option that was neither given nor defaulted return the
// type's empty value (empty text, 0, false, no elements); asking for a name that was never
// declared, or with the getter of another type, throws ArgumentException
// "Option not declared | option=name" / "Option has another type | option=name".
class ZEL_API Arguments {
public:
    Arguments() = default;

    // Given on the command line or defaulted.
    bool has(const std::string& name) const;
    // Given on the command line.
    bool isGiven(const std::string& name) const;

    std::string string(const std::string& name) const;
    std::int64_t integer(const std::string& name) const;
    double number(const std::string& name) const;
    // Flags and Boolean options.
    bool boolean(const std::string& name) const;
    std::vector<std::string> list(const std::string& name) const;
    // A List option's values grouped by occurrence: {{"S.O", "{}"}, {"T.P"}} for
    // "--call S.O {} --call T.P" (see Option::valueCount); a default is one occurrence of one value.
    std::vector<std::vector<std::string>> occurrences(const std::string& name) const;

    // Positional arguments by their declared name (the empty string when absent), or all of them in
    // order (a trailing list positional collects the rest).
    std::string positional(const std::string& name) const;
    const std::vector<std::string>& positionals() const noexcept { return m_positionals; }

    // The sub-command chosen, outermost first ({"db", "migrate"}); empty without command groups.
    const std::vector<std::string>& commandPath() const noexcept { return m_commandPath; }
    // The innermost command name, or the empty string.
    std::string command() const;

    // "--help" or "-h" was given; helpText() then holds the help of the chosen command.
    bool helpRequested() const noexcept { return m_helpRequested; }
    const std::string& helpText() const noexcept { return m_helpText; }

private:
    friend class CommandLine;

    struct Value {
        ValueType type = ValueType::String;
        bool given = false;
        std::vector<std::string> texts;  // one for scalars, any number for lists
        std::vector<std::size_t> counts; // how many of texts each occurrence of a list took
    };
    const Value& value(const std::string& name) const;
    const Value* typed(const std::string& name, ValueType type) const;

    std::map<std::string, Value> m_values;
    std::vector<std::string> m_positionals;
    std::vector<std::string> m_positionalNames;
    std::vector<std::string> m_commandPath;
    bool m_helpRequested = false;
    std::string m_helpText;
};

} // namespace Zel::Console
