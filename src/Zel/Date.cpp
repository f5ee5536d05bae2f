#include <Zel/ArgumentException.h>
#include <Zel/Date.h>

#include <cstdio>

namespace Zel {

void Date::setFromSql(std::string_view text) {
    const std::string copy(text); // sscanf needs a terminated string
    int year = 0;
    int month = 0;
    int day = 0;
    if (std::sscanf(copy.c_str(), "%d-%d-%d", &year, &month, &day) != 3) {
        throw ArgumentException("Invalid SQL date format: " + copy);
    }
    const bool inRange = year >= 0 && year <= 65535 && month >= 1 && month <= 12 && day >= 1 && day <= 31;
    *this = inRange ? Date(year, month, day) : Date();
}

std::string Date::toString() const {
    char text[32];
    const int length = std::snprintf(text, sizeof text, "%d-%02d-%02d", year(), month(), day());
    return std::string(text, static_cast<std::size_t>(length));
}

} // namespace Zel
