#pragma once

// What the TLS tests of the client and of the server shake hands with.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <openssl/ssl.h>
#include <string>

namespace Zel::Net::Http::Testing {

// A certificate authority and two server certificates it signed, made afresh with the openssl tool:
// one for 127.0.0.1 and localhost, one for another name only.
class Certificates {
public:
    Certificates() {
        char pattern[] = "/tmp/zel-tls-XXXXXX";
        m_dir = ::mkdtemp(pattern);
        std::ofstream(m_dir / "right.ext") << "subjectAltName=IP:127.0.0.1,DNS:localhost\n";
        std::ofstream(m_dir / "wrong.ext") << "subjectAltName=DNS:other.test\n";
        const std::string script =
            "cd '" + m_dir.string() +
            "' && "
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout ca.key -out "
            "ca.pem "
            "-days 2 -subj '/CN=Zel Test CA' -addext basicConstraints=critical,CA:TRUE "
            "-addext keyUsage=critical,keyCertSign 2>/dev/null && "
            "for name in right wrong; do "
            "openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout $name.key -out "
            "$name.csr "
            "-subj /CN=$name 2>/dev/null && "
            "openssl x509 -req -in $name.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile "
            "$name.ext "
            "-out $name.pem 2>/dev/null || exit 1; done";
        m_made = std::system(script.c_str()) == 0;
    }
    ~Certificates() { std::filesystem::remove_all(m_dir); }

    bool made() const noexcept { return m_made; }
    std::string path(const std::string& file) const { return (m_dir / file).string(); }

    // A server context presenting the named certificate.
    std::shared_ptr<SSL_CTX> serverContext(const std::string& name) const {
        std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
        SSL_CTX_use_certificate_chain_file(context.get(), path(name + ".pem").c_str());
        SSL_CTX_use_PrivateKey_file(context.get(), path(name + ".key").c_str(), SSL_FILETYPE_PEM);
        return context;
    }

private:
    std::filesystem::path m_dir;
    bool m_made = false;
};

} // namespace Zel::Net::Http::Testing
