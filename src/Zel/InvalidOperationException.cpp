#include <Zel/InvalidOperationException.h>

#include <string>
#include <utility>

namespace Zel {

namespace Detail {

std::string_view librarySourcePath(std::string_view file) noexcept {
    // Look for the last "src/" directory component, accepting either separator.
    std::size_t start = 0;
    for (std::size_t i = file.size(); i >= 4; --i) {
        const std::size_t at = i - 4;
        const std::string_view piece = file.substr(at, 3);
        const char separator = file[at + 3];
        if (piece == "src" && (separator == '/' || separator == '\\') &&
            (at == 0 || file[at - 1] == '/' || file[at - 1] == '\\')) {
            start = at + 4;
            break;
        }
    }
    std::string_view path = file.substr(start);
    const std::size_t dot = path.rfind('.');
    const std::size_t slash = path.find_last_of("/\\");
    if (dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash)) {
        path = path.substr(0, dot);
    }
    return path;
}

} // namespace Detail

namespace {

std::string formatMessage(std::string_view function, std::string_view sourceFile, int line) {
    std::string path(Detail::librarySourcePath(sourceFile));
    for (char& c : path) {
        if (c == '\\') c = '/';
    }
    std::string text = "Invalid operation | func=";
    text.append(function);
    text += " | file=";
    text += path;
    text += " | line=";
    text += std::to_string(line);
    return text;
}

} // namespace

InvalidOperationException::InvalidOperationException(std::string_view function, std::string_view sourceFile,
                                                     int line)
    : GenericException(formatMessage(function, sourceFile, line)) {}

InvalidOperationException::InvalidOperationException(PreformattedTag, std::string message)
    : GenericException(std::move(message)) {}

InvalidOperationException::~InvalidOperationException() = default;

} // namespace Zel
