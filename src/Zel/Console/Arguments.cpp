#include <Zel/ArgumentException.h>
#include <Zel/Console/Arguments.h>
#include <cstdlib>

namespace Zel::Console {

const Arguments::Value& Arguments::value(const std::string& name) const {
    const auto found = m_values.find(name);
    if (found == m_values.end()) throw ArgumentException("Option not declared | option=" + name);
    return found->second;
}

const Arguments::Value* Arguments::typed(const std::string& name, ValueType type) const {
    const Value& entry = value(name);
    const bool matches = entry.type == type ||
                         (type == ValueType::Boolean && entry.type == ValueType::Flag) ||
                         (type == ValueType::String && entry.type != ValueType::List);
    if (!matches) throw ArgumentException("Option has another type | option=" + name);
    return entry.texts.empty() ? nullptr : &entry;
}

bool Arguments::has(const std::string& name) const {
    return !value(name).texts.empty();
}

bool Arguments::isGiven(const std::string& name) const {
    return value(name).given;
}

std::string Arguments::string(const std::string& name) const {
    const Value* entry = typed(name, ValueType::String);
    return entry ? entry->texts.back() : std::string();
}

std::int64_t Arguments::integer(const std::string& name) const {
    const Value* entry = typed(name, ValueType::Integer);
    return entry ? std::strtoll(entry->texts.back().c_str(), nullptr, 10) : 0;
}

double Arguments::number(const std::string& name) const {
    const Value* entry = typed(name, ValueType::Double);
    return entry ? std::strtod(entry->texts.back().c_str(), nullptr) : 0.0;
}

bool Arguments::boolean(const std::string& name) const {
    const Value* entry = typed(name, ValueType::Boolean);
    return entry && entry->texts.back() == "true";
}

std::vector<std::string> Arguments::list(const std::string& name) const {
    const Value* entry = typed(name, ValueType::List);
    return entry ? entry->texts : std::vector<std::string>();
}

std::vector<std::vector<std::string>> Arguments::occurrences(const std::string& name) const {
    std::vector<std::vector<std::string>> grouped;
    const Value* entry = typed(name, ValueType::List);
    if (!entry) return grouped;
    auto next = entry->texts.begin();
    for (const std::size_t count : entry->counts) {
        grouped.emplace_back(next, next + static_cast<std::ptrdiff_t>(count));
        next += static_cast<std::ptrdiff_t>(count);
    }
    return grouped;
}

std::string Arguments::positional(const std::string& name) const {
    for (std::size_t i = 0; i < m_positionalNames.size() && i < m_positionals.size(); ++i) {
        if (m_positionalNames[i] == name) return m_positionals[i];
    }
    return {};
}

std::string Arguments::command() const {
    return m_commandPath.empty() ? std::string() : m_commandPath.back();
}

} // namespace Zel::Console
