#pragma once

#include <Zel/Export.h>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zel::Db::Detail {

// "Key=value;Key2={value; with braces}" as ODBC writes connection strings. Keys compare without
// regard to ASCII case; a value in braces may hold ';' and '=' ("}}" is a literal '}').
class ZEL_API ConnectionString {
public:
    // DbException "Db: malformed connection string | at=%d" for a pair without '=' or an unclosed
    // brace. The text itself is never quoted in the message: it may hold a password.
    explicit ConnectionString(std::string_view text);

    // Whether the text names an ODBC driver or data source (DRIVER, DSN or FILEDSN).
    static bool isOdbc(std::string_view text);

    std::optional<std::string> find(std::string_view key) const;
    std::string get(std::string_view key, std::string fallback = {}) const;
    const std::vector<std::pair<std::string, std::string>>& pairs() const noexcept { return m_pairs; }

private:
    std::vector<std::pair<std::string, std::string>> m_pairs;
};

} // namespace Zel::Db::Detail
