#include <Zel/Url.h>
#include <Zel/StringUtils.h>

#include <Zel/ArgumentException.h>

#include <charconv>

namespace Zel {

namespace {

bool isAlpha(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool isSchemeChar(char c) noexcept {
    return isAlpha(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
}

[[noreturn]] void throwInvalid(const char* what, std::string_view url) {
    throw ArgumentException(std::string("Url: invalid ") + what +
                            " | url=" + std::string(url.substr(0, 256)));
}

// "" gives 0; digits only, at most 65535.
int parsePort(std::string_view text, std::string_view url) {
    if (text.empty()) return 0;
    int port = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || stop != text.data() + text.size() || port < 0 || port > 65535 ||
        !isDigit(text.front())) {
        throwInvalid("port", url);
    }
    return port;
}

} // namespace

Url::Url(std::string_view text) {
    std::string_view rest = text;
    if (const std::size_t hash = rest.find('#'); hash != std::string_view::npos) {
        m_fragment = rest.substr(hash + 1);
        m_hasFragment = true;
        rest = rest.substr(0, hash);
    }
    if (const std::size_t question = rest.find('?'); question != std::string_view::npos) {
        m_query = rest.substr(question + 1);
        m_hasQuery = true;
        rest = rest.substr(0, question);
    }

    // A scheme is letters first, then scheme characters, up to a ':' before any '/'.
    std::size_t colon = rest.find(':');
    if (colon != std::string_view::npos && colon > 0 && isAlpha(rest[0]) && rest.find('/') > colon) {
        bool schemeChars = true;
        for (std::size_t i = 1; i < colon && schemeChars; ++i)
            schemeChars = isSchemeChar(rest[i]);
        const std::string_view after = rest.substr(colon + 1);
        const bool portOnly = !after.empty() && after.size() <= 5 &&
                              after.find_first_not_of("0123456789") == std::string_view::npos;
        if (portOnly && !m_hasQuery && !m_hasFragment) {
            // "host:port", the target of a CONNECT request.
            m_host = rest.substr(0, colon);
            m_port = parsePort(after, text);
            return;
        }
        if (schemeChars) {
            m_scheme = rest.substr(0, colon);
            rest = after;
        }
    }

    if (rest.starts_with("//")) {
        m_hasAuthority = true;
        rest.remove_prefix(2);
        const std::size_t slash = rest.find('/');
        std::string_view authority = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
        if (const std::size_t at = authority.rfind('@'); at != std::string_view::npos) {
            m_userInfo = authority.substr(0, at);
            authority = authority.substr(at + 1);
        }
        std::string_view portText;
        if (authority.starts_with('[')) {
            const std::size_t close = authority.find(']');
            if (close == std::string_view::npos) throwInvalid("host", text);
            m_host = authority.substr(1, close - 1);
            const std::string_view after = authority.substr(close + 1);
            if (!after.empty()) {
                if (after[0] != ':') throwInvalid("host", text);
                portText = after.substr(1);
            }
        } else if (const std::size_t portColon = authority.rfind(':'); portColon != std::string_view::npos) {
            m_host = authority.substr(0, portColon);
            portText = authority.substr(portColon + 1);
        } else {
            m_host = authority;
        }
        m_port = parsePort(portText, text);
    }
    m_path = rest;
}

int Url::effectivePort() const noexcept {
    if (m_port != 0) return m_port;
    auto is = [this](std::string_view name) {
        if (m_scheme.size() != name.size()) return false;
        for (std::size_t i = 0; i < name.size(); ++i) {
            if ((m_scheme[i] | 0x20) != name[i]) return false;
        }
        return true;
    };
    if (is("http") || is("ws")) return 80;
    if (is("https") || is("wss")) return 443;
    if (is("ftp")) return 21;
    return 0;
}

Url& Url::setScheme(std::string scheme) {
    m_scheme = std::move(scheme);
    return *this;
}

Url& Url::setUserInfo(std::string userInfo) {
    m_userInfo = std::move(userInfo);
    m_hasAuthority = true;
    return *this;
}

Url& Url::setHost(std::string host) {
    m_host = std::move(host);
    m_hasAuthority = true;
    return *this;
}

Url& Url::setPort(int port) {
    if (port < 0 || port > 65535) throwInvalid("port", std::to_string(port));
    m_port = port;
    if (port != 0) m_hasAuthority = true;
    return *this;
}

Url& Url::setPath(std::string path) {
    m_path = std::move(path);
    return *this;
}

Url& Url::setQuery(std::string query) {
    m_query = std::move(query);
    m_hasQuery = !m_query.empty();
    return *this;
}

Url& Url::setFragment(std::string fragment) {
    m_fragment = std::move(fragment);
    m_hasFragment = !m_fragment.empty();
    return *this;
}

std::vector<std::pair<std::string, std::string>> Url::queryParameters() const {
    std::vector<std::pair<std::string, std::string>> parameters;
    std::string_view rest = m_query;
    while (!rest.empty()) {
        const std::size_t amp = rest.find('&');
        const std::string_view item = rest.substr(0, amp);
        rest = amp == std::string_view::npos ? std::string_view() : rest.substr(amp + 1);
        if (item.empty()) continue;
        const std::size_t equals = item.find('=');
        if (equals == std::string_view::npos) {
            parameters.emplace_back(decode(item, true), std::string());
        } else {
            parameters.emplace_back(decode(item.substr(0, equals), true),
                                    decode(item.substr(equals + 1), true));
        }
    }
    return parameters;
}

bool Url::hasQueryParameter(std::string_view name) const {
    for (const auto& [key, value] : queryParameters()) {
        if (key == name) return true;
    }
    return false;
}

std::string Url::queryParameter(std::string_view name, std::string_view defaultValue) const {
    for (auto& [key, value] : queryParameters()) {
        if (key == name) return std::move(value);
    }
    return std::string(defaultValue);
}

Url& Url::addQueryParameter(std::string_view name, std::string_view value) {
    if (!m_query.empty()) m_query += '&';
    m_query += encode(name);
    m_query += '=';
    m_query += encode(value);
    m_hasQuery = true;
    return *this;
}

std::string Url::toString() const {
    std::string text;
    if (!m_scheme.empty()) {
        text += m_scheme;
        text += ':';
    }
    const bool bracketed = m_host.find(':') != std::string::npos;
    if (m_hasAuthority) {
        text += "//";
        if (!m_userInfo.empty()) {
            text += m_userInfo;
            text += '@';
        }
    }
    if (m_hasAuthority || !m_host.empty()) {
        text += bracketed ? "[" + m_host + "]" : m_host;
        if (m_port != 0) {
            text += ':';
            text += std::to_string(m_port);
        }
    }
    text += m_path;
    if (m_hasQuery) {
        text += '?';
        text += m_query;
    }
    if (m_hasFragment) {
        text += '#';
        text += m_fragment;
    }
    return text;
}

bool Url::empty() const noexcept {
    return m_scheme.empty() && m_userInfo.empty() && m_host.empty() && m_path.empty() && m_query.empty() &&
           m_fragment.empty() && m_port == 0 && !m_hasAuthority && !m_hasQuery && !m_hasFragment;
}

std::string Url::decode(std::string_view text, bool plusAsSpace) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '%' && i + 2 < text.size() && StringUtils::hexDigitValue(text[i + 1]) >= 0 && StringUtils::hexDigitValue(text[i + 2]) >= 0) {
            decoded += static_cast<char>(StringUtils::hexDigitValue(text[i + 1]) * 16 + StringUtils::hexDigitValue(text[i + 2]));
            i += 2;
        } else if (c == '+' && plusAsSpace) {
            decoded += ' ';
        } else {
            decoded += c;
        }
    }
    return decoded;
}

std::string Url::encode(std::string_view text, std::string_view keep) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        if (isAlpha(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~' ||
            keep.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += '%';
            encoded += digits[byte >> 4];
            encoded += digits[byte & 15];
        }
    }
    return encoded;
}

} // namespace Zel
