#pragma once

#include <Zel/Export.h>
#include <memory>
#include <string>

namespace Zel::Net {

namespace Detail {
struct TlsContextImpl;
struct TlsContextAccess;
} // namespace Detail

// The TLS settings of one side (OpenSSL 3, TLS 1.2 and later).
//
// A client context verifies the server's certificate chain against the system's trusted
// authorities (or the given file of them) and, in TlsStream::connect, the host name. A server
// context presents a certificate and its key read from PEM files; reload() reads them again, and
// every handshake after it uses the new pair while connections already open keep theirs, so a
// renewed certificate needs no restart.
//
// Thread safety: a context may be shared by any number of streams and threads; reload() may run
// beside handshakes.
class ZEL_API TlsContext {
public:
    enum class Verification { Verify, None };

    // Throws IO::IOException "TLS: cannot load | file=.. | error=.." for an unreadable file.
    static TlsContext client(const std::string& trustedAuthoritiesFile = {},
                             Verification verification = Verification::Verify);
    static TlsContext server(const std::string& certificateFile, const std::string& keyFile);

    // Server contexts: reads the certificate and key files again. On failure the old pair stays
    // in use and IO::IOException is thrown.
    void reload();

    bool isServer() const noexcept;
    bool verifies() const noexcept;

private:
    friend class TlsStream;
    friend struct Detail::TlsContextAccess;

    explicit TlsContext(std::shared_ptr<Detail::TlsContextImpl> impl) : m_impl(std::move(impl)) {}
    std::shared_ptr<Detail::TlsContextImpl> m_impl;
};

} // namespace Zel::Net
