#pragma once

#include <Zel/Net/Http/ClientOptions.h>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace Zel::Net::Http {

// An OAuth2 access token got with the client-credentials grant, cached and refreshed.
//
//     auto credentials = std::make_shared<OAuth2ClientCredentials>(
//         "https://auth.example.org/token", "zel-notes", secret);
//     client.setOAuth2(credentials);
//
// token() posts "grant_type=client_credentials" (and "scope" when set) as
// application/x-www-form-urlencoded to the token endpoint, with the client id and secret in Basic
// authentication or in the form, and keeps the "access_token" of the JSON answer until its
// "expires_in" seconds less the refresh margin have passed (without "expires_in", until
// invalidate). A failed fetch throws HttpException "OAuth2: token request failed | status=... |
// error=..." and caches nothing.
//
// Thread safety: any number of threads may ask at once; they wait for one fetch between them.
class ZEL_API OAuth2ClientCredentials {
public:
    enum class ClientAuthentication { Basic, RequestBody };
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    OAuth2ClientCredentials(std::string tokenUrl, std::string clientId, std::string clientSecret,
                            ClientOptions options = {});
    ~OAuth2ClientCredentials();
    OAuth2ClientCredentials(const OAuth2ClientCredentials&) = delete;
    OAuth2ClientCredentials& operator=(const OAuth2ClientCredentials&) = delete;

    // Space-separated scopes; empty sends none.
    OAuth2ClientCredentials& setScope(std::string scope);
    // Basic unless told otherwise.
    OAuth2ClientCredentials& setClientAuthentication(ClientAuthentication how);
    // How long before its expiry a token is replaced; 30 seconds unless told otherwise.
    OAuth2ClientCredentials& setRefreshMargin(std::chrono::seconds margin);
    // The clock expiry is measured with; steady_clock::now unless told otherwise.
    OAuth2ClientCredentials& setClock(Clock clock);

    // The cached token, or a new one when there is none or it is about to expire.
    std::string token();
    // Forgets the cached token if it is still `token` (a server refused it), so that the next
    // token() fetches a new one; a token another thread has replaced meanwhile stays.
    void invalidate(const std::string& token);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace Zel::Net::Http
