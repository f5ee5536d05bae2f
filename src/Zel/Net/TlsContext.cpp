#include <Zel/IO/IOException.h>
#include <Zel/Net/Detail/TlsContextImpl.h>
#include <Zel/Net/TlsContext.h>

namespace Zel::Net {

namespace ssl = boost::asio::ssl;

namespace {

std::shared_ptr<ssl::context> makeServerContext(const std::string& certificateFile,
                                                const std::string& keyFile) {
    auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    context->set_options(ssl::context::default_workarounds | ssl::context::no_sslv2 | ssl::context::no_sslv3 |
                         ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1);
    boost::system::error_code error;
    context->use_certificate_chain_file(certificateFile, error);
    if (error)
        throw IO::IOException("TLS: cannot load | file=" + certificateFile + " | error=" + error.message());
    context->use_private_key_file(keyFile, ssl::context::pem, error);
    if (error) throw IO::IOException("TLS: cannot load | file=" + keyFile + " | error=" + error.message());
    return context;
}

} // namespace

std::shared_ptr<ssl::context> Detail::TlsContextImpl::current() const {
    const std::lock_guard lock(mutex);
    return context;
}

TlsContext TlsContext::client(const std::string& trustedAuthoritiesFile, Verification verification) {
    auto impl = std::make_shared<Detail::TlsContextImpl>();
    impl->context = std::make_shared<ssl::context>(ssl::context::tls_client);
    impl->context->set_options(ssl::context::default_workarounds | ssl::context::no_sslv2 |
                               ssl::context::no_sslv3 | ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1);
    impl->verify = verification == Verification::Verify;
    boost::system::error_code error;
    if (trustedAuthoritiesFile.empty())
        impl->context->set_default_verify_paths(error);
    else
        impl->context->load_verify_file(trustedAuthoritiesFile, error);
    if (error)
        throw IO::IOException("TLS: cannot load | file=" + trustedAuthoritiesFile +
                              " | error=" + error.message());
    impl->context->set_verify_mode(impl->verify ? ssl::verify_peer : ssl::verify_none);
    return TlsContext(std::move(impl));
}

TlsContext TlsContext::server(const std::string& certificateFile, const std::string& keyFile) {
    auto impl = std::make_shared<Detail::TlsContextImpl>();
    impl->server = true;
    impl->certificateFile = certificateFile;
    impl->keyFile = keyFile;
    impl->context = makeServerContext(certificateFile, keyFile);
    return TlsContext(std::move(impl));
}

void TlsContext::reload() {
    if (!m_impl->server) return;
    auto fresh = makeServerContext(m_impl->certificateFile, m_impl->keyFile);
    const std::lock_guard lock(m_impl->mutex);
    m_impl->context = std::move(fresh);
}

bool TlsContext::isServer() const noexcept {
    return m_impl->server;
}

bool TlsContext::verifies() const noexcept {
    return m_impl->verify;
}

} // namespace Zel::Net
