#include <Zel/GenericException.h>
#include <Zel/Log/Level.h>
#include <Zel/StringUtils.h>
#include <array>
#include <stdexcept>
#include <string>

namespace Zel::Log {

namespace {

constexpr std::size_t levelCount = 7;

// Indexed by level number. Constant data needs no lazy construction or lock.
constexpr std::array<int, levelCount> ranks = {
    3, // Info
    4, // Warning
    5, // Error
    2, // Notice
    1, // Debug
    0, // Trace
    6, // Critical
};

constexpr std::array<std::string_view, levelCount> names = {
    "Info", "Warning", "Error", "Notice", "Debug", "Trace", "Critical",
};

std::size_t checkedIndex(Level level) {
    const auto number = static_cast<std::int32_t>(level);
    if (number < 0 || static_cast<std::size_t>(number) >= levelCount) {
        throw std::out_of_range("Log level out of range | level=" + std::to_string(number));
    }
    return static_cast<std::size_t>(number);
}

} // namespace

bool levelGreater(Level a, Level b) {
    return ranks[checkedIndex(a)] > ranks[checkedIndex(b)];
}

int levelRank(Level level) {
    return ranks[checkedIndex(level)];
}

std::string_view levelName(Level level) {
    return names[checkedIndex(level)];
}

Level parseLevel(std::string_view name) {
    for (std::size_t i = 0; i < levelCount; ++i) {
        if (StringUtils::equalsIgnoringCase(name, names[i])) return static_cast<Level>(i);
    }
    throw GenericException("Unknown log level: " + std::string(name));
}

std::string_view dataTypeName(DataType type) noexcept {
    switch (type) {
    case DataType::Text:
        return "Text";
    case DataType::Json:
        return "Json";
    case DataType::Xml:
        return "Xml";
    }
    return "Unknown";
}

} // namespace Zel::Log
