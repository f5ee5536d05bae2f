#include <Zel/Time.h>

#include <cstdio>

namespace Zel {

std::string Time::toString() const {
    char text[32];
    const int length = std::snprintf(text, sizeof text, "%02d:%02d:%02d", hour(), minute(), second());
    return std::string(text, static_cast<std::size_t>(length));
}

} // namespace Zel
