#include <Zel/ArgumentException.h>
#include <Zel/Console/CommandLine.h>
#include <Zel/Console/Detail/Values.h>
#include <Zel/Console/UsageException.h>
#include <algorithm>
#include <cctype>

namespace Zel::Console {

namespace {

std::string withSuggestion(std::string message, const std::string& suggestion) {
    if (!suggestion.empty()) message += " | suggestion=" + suggestion;
    return message;
}

bool closeEnough(std::size_t distance, std::string_view candidate) {
    return distance <= std::max<std::size_t>(1, candidate.size() / 3);
}

// The help text of a row starts in one column and wraps at spaces to keep within 100 columns.
void appendRow(std::string& out, const std::string& left, std::string_view right) {
    constexpr std::size_t column = 28;
    constexpr std::size_t width = 100 - column;
    out += "  " + left;
    if (left.size() + 2 >= column)
        out += "\n" + std::string(column, ' ');
    else
        out += std::string(column - 2 - left.size(), ' ');
    while (right.size() > width) {
        std::size_t cut = right.rfind(' ', width);
        if (cut == std::string_view::npos || cut == 0) cut = right.find(' ', width);
        if (cut == std::string_view::npos) break;
        out.append(right.substr(0, cut)).append("\n").append(column, ' ');
        right.remove_prefix(cut + 1);
    }
    out.append(right).append("\n");
}

} // namespace

CommandLine::CommandLine(std::string program, std::string description)
    : m_program(std::move(program)), m_description(std::move(description)) {}

CommandLine::~CommandLine() = default;

Option& CommandLine::option(std::string longName, ValueType type, std::string help) {
    if (longName == "help" || findLong(longName)) {
        throw ArgumentException("Option already declared | option=--" + longName);
    }
    return m_options.emplace_back(std::move(longName), type, std::move(help));
}

CommandLine& CommandLine::positional(std::string name, std::string help, bool required) {
    m_positionals.push_back({std::move(name), std::move(help), required, false});
    return *this;
}

CommandLine& CommandLine::positionalList(std::string name, std::string help, bool required) {
    m_positionals.push_back({std::move(name), std::move(help), required, true});
    return *this;
}

CommandLine& CommandLine::command(std::string name, std::string help) {
    auto child = std::make_unique<CommandLine>(std::move(name), std::move(help));
    child->m_parent = this;
    m_commands.push_back(std::move(child));
    return *m_commands.back();
}

const Option* CommandLine::findLong(std::string_view name) const {
    for (const CommandLine* level = this; level; level = level->m_parent) {
        for (const auto& option : level->m_options) {
            if (option.longName() == name) return &option;
        }
    }
    return nullptr;
}

const Option* CommandLine::findShort(char name) const {
    for (const CommandLine* level = this; level; level = level->m_parent) {
        for (const auto& option : level->m_options) {
            if (option.shortNameChar() == name) return &option;
        }
    }
    return nullptr;
}

const CommandLine* CommandLine::findCommand(std::string_view name) const {
    for (const auto& command : m_commands) {
        if (command->m_program == name) return command.get();
    }
    return nullptr;
}

std::string CommandLine::suggestOption(std::string_view given) const {
    std::string best;
    std::size_t bestDistance = std::string::npos;
    auto consider = [&](std::string_view candidate) {
        const std::size_t distance = Detail::editDistance(given, candidate);
        if (distance < bestDistance && closeEnough(distance, candidate)) {
            bestDistance = distance;
            best = "--" + std::string(candidate);
        }
    };
    for (const CommandLine* level = this; level; level = level->m_parent) {
        for (const auto& option : level->m_options)
            consider(option.longName());
    }
    consider("help");
    return best;
}

std::string CommandLine::qualifiedName() const {
    return m_parent ? m_parent->qualifiedName() + " " + m_program : m_program;
}

Arguments CommandLine::parse(int argc, const char* const* argv) const {
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i)
        arguments.emplace_back(argv[i]);
    return parse(arguments);
}

Arguments CommandLine::parse(const std::vector<std::string>& arguments) const {
    Arguments result;
    const CommandLine* current = this;
    auto declareValues = [&result](const CommandLine& level) {
        for (const auto& option : level.m_options)
            result.m_values[option.longName()].type = option.type();
    };
    declareValues(*this);

    // sameOccurrence: one more value of the occurrence stored last (Option::valueCount).
    auto store = [&result](const Option& option, std::string_view text, const std::string& spelled,
                           bool sameOccurrence = false) {
        std::string normalized;
        if (!Detail::normalizeValue(option.type(), text, normalized)) {
            throw UsageException("Invalid value for option | option=" + spelled + " | value=" +
                                 std::string(text) + " | expected=" + Detail::typeName(option.type()));
        }
        auto& value = result.m_values[option.longName()];
        if (option.type() != ValueType::List) value.texts.clear();
        value.texts.push_back(std::move(normalized));
        if (option.type() == ValueType::List) {
            if (sameOccurrence)
                ++value.counts.back();
            else
                value.counts.push_back(1);
        }
        value.given = true;
    };
    // A negative number is a value unless a short option of that digit exists.
    auto looksLikeOption = [&current](const std::string& argument) {
        return argument.size() > 1 && argument[0] == '-' &&
               !(std::isdigit(static_cast<unsigned char>(argument[1])) && !current->findShort(argument[1]));
    };
    // The values an occurrence takes after its first one.
    auto storeMore = [&](const Option& option, std::size_t& i, const std::string& spelled) {
        for (std::size_t taken = 1; taken < option.maximumValues(); ++taken) {
            const bool needed = taken < option.minimumValues();
            if (i + 1 >= arguments.size() || (!needed && looksLikeOption(arguments[i + 1]))) {
                if (needed) throw UsageException("Missing value for option | option=" + spelled);
                return;
            }
            store(option, arguments[++i], spelled, true);
        }
    };
    auto requestHelp = [&result, &current]() {
        result.m_helpRequested = true;
        result.m_helpText = current->helpText();
        return result;
    };

    std::vector<std::string> positionals;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (!optionsEnded && argument == "--") {
            optionsEnded = true;
        } else if (!optionsEnded && argument.size() > 2 && argument.starts_with("--")) {
            const auto equals = argument.find('=');
            const std::string name =
                argument.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
            const std::string spelled = "--" + name;
            if (name == "help") return requestHelp();
            const Option* option = current->findLong(name);
            if (!option) {
                throw UsageException(
                    withSuggestion("Unknown option | option=" + spelled, current->suggestOption(name)));
            }
            if (option->type() == ValueType::Flag) {
                if (equals != std::string::npos)
                    throw UsageException("Option takes no value | option=" + spelled);
                store(*option, "true", spelled);
            } else {
                if (equals != std::string::npos)
                    store(*option, std::string_view(argument).substr(equals + 1), spelled);
                else if (i + 1 < arguments.size())
                    store(*option, arguments[++i], spelled);
                else
                    throw UsageException("Missing value for option | option=" + spelled);
                storeMore(*option, i, spelled);
            }
        } else if (!optionsEnded && looksLikeOption(argument)) {
            // A bundle of short options; a negative number without a matching option is a positional.
            for (std::size_t j = 1; j < argument.size(); ++j) {
                const std::string spelled = std::string("-") + argument[j];
                const Option* option = current->findShort(argument[j]);
                if (!option && argument[j] == 'h') return requestHelp();
                if (!option) throw UsageException("Unknown option | option=" + spelled);
                if (option->type() == ValueType::Flag) {
                    store(*option, "true", spelled);
                    continue;
                }
                if (j + 1 < argument.size())
                    store(*option, std::string_view(argument).substr(j + 1), spelled);
                else if (i + 1 < arguments.size())
                    store(*option, arguments[++i], spelled);
                else
                    throw UsageException("Missing value for option | option=" + spelled);
                storeMore(*option, i, spelled);
                break;
            }
        } else if (!current->m_commands.empty()) {
            const CommandLine* command = current->findCommand(argument);
            if (!command) {
                std::string suggestion;
                std::size_t bestDistance = std::string::npos;
                for (const auto& candidate : current->m_commands) {
                    const std::size_t distance = Detail::editDistance(argument, candidate->m_program);
                    if (distance < bestDistance && closeEnough(distance, candidate->m_program)) {
                        bestDistance = distance;
                        suggestion = candidate->m_program;
                    }
                }
                throw UsageException(withSuggestion("Unknown command | command=" + argument, suggestion));
            }
            result.m_commandPath.push_back(argument);
            current = command;
            declareValues(*current);
        } else {
            positionals.push_back(argument);
        }
    }

    if (!current->m_commands.empty()) {
        std::string names;
        for (const auto& command : current->m_commands)
            names += (names.empty() ? "" : ",") + command->m_program;
        throw UsageException("Missing command | commands=" + names);
    }

    std::size_t next = 0;
    for (const auto& declared : current->m_positionals) {
        if (next >= positionals.size()) {
            if (declared.required) throw UsageException("Missing argument | argument=" + declared.name);
            break;
        }
        const std::size_t count = declared.list ? positionals.size() - next : 1;
        for (std::size_t k = 0; k < count; ++k)
            result.m_positionalNames.push_back(declared.name);
        next += count;
    }
    if (next < positionals.size())
        throw UsageException("Unexpected argument | argument=" + positionals[next]);
    result.m_positionals = std::move(positionals);

    for (const CommandLine* level = current; level; level = level->m_parent) {
        for (const auto& option : level->m_options) {
            auto& value = result.m_values[option.longName()];
            if (value.given) continue;
            if (option.defaultText()) {
                value.texts = {*option.defaultText()};
                value.counts = {1};
            } else if (option.isRequired())
                throw UsageException("Missing required option | option=--" + option.longName());
        }
    }
    return result;
}

std::string CommandLine::helpText() const {
    std::string usage = "Usage: " + qualifiedName();
    if (!m_commands.empty())
        usage += " [options] <command> [<args>]";
    else if (!m_options.empty() || m_parent)
        usage += " [options]";
    for (const auto& declared : m_positionals) {
        const std::string name = "<" + declared.name + ">" + (declared.list ? "..." : "");
        usage += " " + (declared.required ? name : "[" + name + "]");
    }
    std::string out = usage + "\n";
    if (!m_description.empty()) out += "\n" + m_description + "\n";

    if (!m_positionals.empty()) {
        out += "\nArguments:\n";
        for (const auto& declared : m_positionals)
            appendRow(out, "<" + declared.name + ">", declared.help);
    }
    auto listOptions = [&out](const std::deque<Option>& options) {
        for (const auto& option : options) {
            std::string left = "    ";
            if (option.shortNameChar()) left = {'-', option.shortNameChar(), ',', ' '};
            left.append("--").append(option.longName());
            if (option.type() != ValueType::Flag) left.append(" ").append(option.placeholder());
            std::string right = option.help();
            if (option.isRequired()) right += " (required)";
            if (option.defaultText()) right.append(" (default: ").append(*option.defaultText()).append(")");
            if (option.type() == ValueType::List) right += " (repeatable)";
            appendRow(out, left, right);
        }
    };
    out += "\nOptions:\n";
    listOptions(m_options);
    appendRow(out, "-h, --help", "Show this help and exit");
    if (m_parent) {
        bool any = false;
        for (const CommandLine* level = m_parent; level; level = level->m_parent)
            any |= !level->m_options.empty();
        if (any) {
            out += "\nGlobal options:\n";
            for (const CommandLine* level = m_parent; level; level = level->m_parent)
                listOptions(level->m_options);
        }
    }
    if (!m_commands.empty()) {
        out += "\nCommands:\n";
        for (const auto& command : m_commands)
            appendRow(out, command->m_program, command->m_description);
    }
    return out;
}

} // namespace Zel::Console
