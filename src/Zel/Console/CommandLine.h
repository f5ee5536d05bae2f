#pragma once

#include <Zel/Console/Arguments.h>
#include <Zel/Console/Option.h>
#include <Zel/Export.h>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Console {

// Declares what a program accepts and parses argv against it.
//
//     CommandLine cli("zel-host", "Loads a plug-in module and drives it");
//     cli.option("config", ValueType::String, "Configuration file").shortName('c').required();
//     cli.option("verbose", ValueType::Flag, "More output").shortName('v');
//     auto& run = cli.command("run", "Run the module");
//     run.positional("module", "Plug-in module to load");
//     Arguments args = cli.parse(argc, argv);
//
// Syntax: "--name=value" and "--name value"; "-n value" and "-nvalue"; bundled flags "-vq" (the last
// letter of a bundle may take a value: "-vc file"); "--" ends the options; a lone "-" is a positional.
// Options of a command group stay valid after the sub-command's name ("tool -v run x" and
// "tool run -v x"). "--help"/"-h" is always accepted and stops checking required options.
//
// Errors throw UsageException with the offending argument named, for example
// "Unknown option | option=--conifg | suggestion=--config". The full set:
//   "Unknown option | option=%s[ | suggestion=%s]"      "Unknown command | command=%s[ | suggestion=%s]"
//   "Missing value for option | option=%s"              "Option takes no value | option=%s"
//   "Invalid value for option | option=%s | value=%s | expected=%s"
//   "Missing required option | option=%s"               "Missing argument | argument=%s"
//   "Unexpected argument | argument=%s"                 "Missing command | commands=a,b"
// A suggestion is the declared name nearest by edit distance, offered when at most a third of it
// (and at least one character) differs.
//
// Not thread-safe while being declared; parse() is const and may run concurrently.
class ZEL_API CommandLine {
public:
    CommandLine(std::string program, std::string description);
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;
    ~CommandLine();

    // Declares an option; names must be unique along the command chain (ArgumentException
    // "Option already declared | option=--name" otherwise). The reference stays valid for the
    // CommandLine's lifetime.
    Option& option(std::string longName, ValueType type, std::string help);
    // Positionals are taken in declaration order; optional ones after the required ones. A list
    // positional (only the last) collects every remaining argument.
    CommandLine& positional(std::string name, std::string help, bool required = true);
    CommandLine& positionalList(std::string name, std::string help, bool required = false);
    // Declares a sub-command; when a command line has sub-commands one of them must be given.
    CommandLine& command(std::string name, std::string help);

    Arguments parse(int argc, const char* const* argv) const;         // argv[0] is the program, skipped
    Arguments parse(const std::vector<std::string>& arguments) const; // without the program

    std::string helpText() const;
    const std::string& program() const noexcept { return m_program; }
    const std::string& description() const noexcept { return m_description; }

private:
    struct Positional {
        std::string name;
        std::string help;
        bool required;
        bool list;
    };

    const Option* findLong(std::string_view name) const;
    const Option* findShort(char name) const;
    const CommandLine* findCommand(std::string_view name) const;
    std::string suggestOption(std::string_view given) const;
    std::string qualifiedName() const;

    std::string m_program;
    std::string m_description;
    const CommandLine* m_parent = nullptr;
    std::deque<Option> m_options;
    std::vector<Positional> m_positionals;
    std::vector<std::unique_ptr<CommandLine>> m_commands;
};

} // namespace Zel::Console
