#include <Zel/Version.h>

#include <Zel/ArgumentException.h>

#include <charconv>

namespace Zel {

Version::Version(std::int32_t major, std::int32_t minor) noexcept
    : m_components{major, minor, 0, 0}, m_size(2) {}

Version::Version(std::int32_t major, std::int32_t minor, std::int32_t build) noexcept
    : m_components{major, minor, build, 0}, m_size(3) {}

Version::Version(std::int32_t major, std::int32_t minor, std::int32_t build, std::int32_t revision) noexcept
    : m_components{major, minor, build, revision}, m_size(4) {}

namespace {

[[noreturn]] void throwInvalid(std::string_view text) {
    constexpr std::size_t shown = 64;
    std::string message = "Version: invalid text | text=";
    message.append(text.substr(0, shown));
    if (text.size() > shown) message += "...";
    throw ArgumentException(std::move(message));
}

} // namespace

Version Version::parse(std::string_view text, char separator) {
    Version version;
    const char* cursor = text.data();
    const char* const end = cursor + text.size();
    for (;;) {
        if (version.m_size == maxComponents || cursor == end || *cursor < '0' || *cursor > '9') {
            throwInvalid(text);
        }
        std::int32_t value = 0;
        const auto [stop, error] = std::from_chars(cursor, end, value);
        if (error != std::errc()) throwInvalid(text);
        version.m_components[static_cast<std::size_t>(version.m_size++)] = value;
        cursor = stop;
        if (cursor == end) return version;
        if (*cursor != separator) throwInvalid(text);
        ++cursor;
    }
}

std::int32_t Version::component(int index) const noexcept {
    return index >= 0 && index < m_size ? m_components[static_cast<std::size_t>(index)] : 0;
}

std::string Version::toString(char separator) const {
    std::string text;
    for (int i = 0; i < m_size; ++i) {
        if (i != 0) text += separator;
        text += std::to_string(m_components[static_cast<std::size_t>(i)]);
    }
    return text;
}

} // namespace Zel
