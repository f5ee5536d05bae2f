#pragma once

#include <Zel/Export.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zel {

// A URL or HTTP request target taken apart: scheme, user information, host, port, path, query and
// fragment. The parts are kept as written (still percent-encoded), so that toString gives the
// parsed text back; decode, decodedPath and the query-parameter accessors resolve the escapes.
//
// Accepted forms: "scheme://user@host:port/path?query#fragment" and any part of it, the request
// targets "/path?query", "host:port" (for CONNECT) and "*", and relative references. A host in
// brackets is an IPv6 address; host() returns it without the brackets.
class ZEL_API Url {
public:
    Url() = default;
    // ArgumentException "Url: invalid port | url=..." for a port that is not a number up to 65535,
    // "Url: invalid host | url=..." for an IPv6 host without its closing bracket.
    explicit Url(std::string_view text);
    static Url parse(std::string_view text) { return Url(text); }

    const std::string& scheme() const noexcept { return m_scheme; }
    const std::string& userInfo() const noexcept { return m_userInfo; }
    const std::string& host() const noexcept { return m_host; }
    // 0 when the URL names none.
    int port() const noexcept { return m_port; }
    // The port, or the usual one of the scheme (http and ws 80, https and wss 443, ftp 21), or 0.
    int effectivePort() const noexcept;
    const std::string& path() const noexcept { return m_path; }
    // Without the '?'.
    const std::string& query() const noexcept { return m_query; }
    // Without the '#'.
    const std::string& fragment() const noexcept { return m_fragment; }

    Url& setScheme(std::string scheme);
    Url& setUserInfo(std::string userInfo);
    Url& setHost(std::string host);
    // ArgumentException "Url: invalid port | url=..." outside 0..65535.
    Url& setPort(int port);
    Url& setPath(std::string path);
    Url& setQuery(std::string query);
    Url& setFragment(std::string fragment);

    std::string decodedPath() const { return decode(m_path); }

    // Query parameters "name=value" separated by '&', names and values decoded with '+' as a
    // space. A name without '=' has the empty value.
    std::vector<std::pair<std::string, std::string>> queryParameters() const;
    bool hasQueryParameter(std::string_view name) const;
    // The value of the first parameter of that name, or `defaultValue`.
    std::string queryParameter(std::string_view name, std::string_view defaultValue = {}) const;
    // Appends "name=value", both encoded.
    Url& addQueryParameter(std::string_view name, std::string_view value);

    std::string toString() const;
    bool empty() const noexcept;

    // Resolves "%XX" escapes (and '+' to a space when asked); a '%' without two hexadecimal digits
    // after it stays as it is.
    static std::string decode(std::string_view text, bool plusAsSpace = false);
    // Escapes every byte except letters, digits, "-._~" and those in `keep`, as "%XX".
    static std::string encode(std::string_view text, std::string_view keep = {});

    friend bool operator==(const Url& a, const Url& b) = default;

private:
    std::string m_scheme;
    std::string m_userInfo;
    std::string m_host;
    std::string m_path;
    std::string m_query;
    std::string m_fragment;
    int m_port = 0;
    bool m_hasAuthority = false; // written with "//"; a host without it is the "host:port" form
    bool m_hasQuery = false;     // so that "/a?" prints back with its '?'
    bool m_hasFragment = false;
};

} // namespace Zel
