#include <Zel/Net/Http/Client.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/OAuth2ClientCredentials.h>
#include <Zel/Url.h>
#include <Zel/Variant.h>
#include <mutex>
#include <optional>

namespace Zel::Net::Http {

namespace {

std::string base64(std::string_view bytes) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        const auto word = static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i]) << 16 |
                                                     static_cast<unsigned char>(bytes[i + 1]) << 8 |
                                                     static_cast<unsigned char>(bytes[i + 2]));
        text += alphabet[word >> 18];
        text += alphabet[(word >> 12) & 63];
        text += alphabet[(word >> 6) & 63];
        text += alphabet[word & 63];
    }
    if (const std::size_t rest = bytes.size() - i; rest > 0) {
        std::uint32_t word = static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i]) << 16);
        if (rest == 2) word |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i + 1]) << 8);
        text += alphabet[word >> 18];
        text += alphabet[(word >> 12) & 63];
        text += rest == 2 ? alphabet[(word >> 6) & 63] : '=';
        text += '=';
    }
    return text;
}

// RFC 6749 has the client id and secret form-encoded before they go into Basic authentication.
std::string formEncode(std::string_view text) {
    return Url::encode(text);
}

} // namespace

struct OAuth2ClientCredentials::Impl {
    Impl(std::string url, std::string id, std::string secret, ClientOptions options)
        : tokenUrl(std::move(url)), clientId(std::move(id)), clientSecret(std::move(secret)),
          client(std::move(options)) {}

    const std::string tokenUrl;
    const std::string clientId;
    const std::string clientSecret;
    Client client;

    std::mutex mutex; // guards everything below, and is held across a fetch so that one runs at a time
    std::string scope;
    ClientAuthentication authentication = ClientAuthentication::Basic;
    std::chrono::seconds margin{30};
    Clock clock = [] { return std::chrono::steady_clock::now(); };
    std::string token;
    std::optional<std::chrono::steady_clock::time_point> expiry;

    void fetch();
};

void OAuth2ClientCredentials::Impl::fetch() {
    const auto asked = clock();
    std::string form = "grant_type=client_credentials";
    if (!scope.empty()) form += "&scope=" + formEncode(scope);
    Headers headers;
    headers.set("Accept", "application/json");
    if (authentication == ClientAuthentication::Basic) {
        headers.set("Authorization",
                    "Basic " + base64(formEncode(clientId) + ":" + formEncode(clientSecret)));
    } else {
        form += "&client_id=" + formEncode(clientId) + "&client_secret=" + formEncode(clientSecret);
    }
    const ClientResponse response =
        client.post(tokenUrl, std::move(form), "application/x-www-form-urlencoded", headers);

    Variant answer;
    try {
        answer = response.json();
    } catch (const GenericException&) {
        // Not JSON: the status says more than the parser would.
    }
    if (!response.ok()) {
        std::string error;
        if (answer.isMap() && answer.contains("error")) error = static_cast<std::string>(answer["error"]);
        throw HttpException("OAuth2: token request failed | status=" + std::to_string(response.statusCode()) +
                            " | error=" + error);
    }
    if (!answer.isMap() || !answer.contains("access_token") || !answer["access_token"].isString()) {
        throw HttpException("OAuth2: token response without access_token | url=" + tokenUrl);
    }
    std::optional<std::chrono::steady_clock::time_point> expires;
    if (answer.contains("expires_in") && !answer["expires_in"].isNull()) {
        const auto lifetime = std::chrono::seconds(static_cast<std::int64_t>(answer["expires_in"]));
        expires = asked + std::max(lifetime - margin, std::chrono::seconds(0));
    }
    token = static_cast<std::string>(answer["access_token"]);
    expiry = expires;
}

OAuth2ClientCredentials::OAuth2ClientCredentials(std::string tokenUrl, std::string clientId,
                                                 std::string clientSecret, ClientOptions options)
    : m_impl(std::make_unique<Impl>(std::move(tokenUrl), std::move(clientId), std::move(clientSecret),
                                    std::move(options))) {}

OAuth2ClientCredentials::~OAuth2ClientCredentials() = default;

OAuth2ClientCredentials& OAuth2ClientCredentials::setScope(std::string scope) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->scope = std::move(scope);
    return *this;
}

OAuth2ClientCredentials& OAuth2ClientCredentials::setClientAuthentication(ClientAuthentication how) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->authentication = how;
    return *this;
}

OAuth2ClientCredentials& OAuth2ClientCredentials::setRefreshMargin(std::chrono::seconds margin) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->margin = margin;
    return *this;
}

OAuth2ClientCredentials& OAuth2ClientCredentials::setClock(Clock clock) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->clock = std::move(clock);
    return *this;
}

std::string OAuth2ClientCredentials::token() {
    std::lock_guard lock(m_impl->mutex);
    if (m_impl->token.empty() || (m_impl->expiry && m_impl->clock() >= *m_impl->expiry)) m_impl->fetch();
    return m_impl->token;
}

void OAuth2ClientCredentials::invalidate(const std::string& token) {
    std::lock_guard lock(m_impl->mutex);
    if (token == m_impl->token) m_impl->token.clear();
}

} // namespace Zel::Net::Http
