#include <Zel/Db/DbException.h>
#include <Zel/Db/Detail/ConnectionString.h>
#include <Zel/StringUtils.h>

namespace Zel::Db::Detail {
namespace {

[[noreturn]] void malformed(std::size_t at) {
    throw DbException("Db: malformed connection string | at=" + std::to_string(at));
}

} // namespace

ConnectionString::ConnectionString(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        if (text[i] == ';' || text[i] == ' ' || text[i] == '\t') {
            ++i;
            continue;
        }
        const std::size_t equals = text.find('=', i);
        if (equals == std::string_view::npos) malformed(i);
        std::string key(StringUtils::trimBlanks(text.substr(i, equals - i)));
        if (key.empty()) malformed(i);
        i = equals + 1;
        while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
            ++i;
        std::string value;
        if (i < text.size() && text[i] == '{') {
            const std::size_t open = i++;
            for (;;) {
                if (i >= text.size()) malformed(open);
                if (text[i] == '}') {
                    if (i + 1 < text.size() && text[i + 1] == '}') {
                        value.push_back('}');
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                value.push_back(text[i++]);
            }
            while (i < text.size() && text[i] != ';')
                ++i;
        } else {
            std::size_t end = text.find(';', i);
            if (end == std::string_view::npos) end = text.size();
            value = std::string(StringUtils::trimBlanks(text.substr(i, end - i)));
            i = end;
        }
        m_pairs.emplace_back(std::move(key), std::move(value));
    }
}

bool ConnectionString::isOdbc(std::string_view text) {
    if (text.find('=') == std::string_view::npos) return false;
    try {
        ConnectionString parsed(text);
        return parsed.find("DRIVER") || parsed.find("DSN") || parsed.find("FILEDSN");
    } catch (const DbException&) {
        return false;
    }
}

std::optional<std::string> ConnectionString::find(std::string_view key) const {
    for (const auto& [name, value] : m_pairs)
        if (StringUtils::equalsIgnoringCase(name, key)) return value;
    return std::nullopt;
}

std::string ConnectionString::get(std::string_view key, std::string fallback) const {
    auto found = find(key);
    return found ? std::move(*found) : std::move(fallback);
}

} // namespace Zel::Db::Detail
