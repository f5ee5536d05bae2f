#include <Zel/Detail/SecureRandom.h>
#include <Zel/GenericException.h>
#include <cerrno>
#include <cstring>
#include <string>
#include <sys/random.h>

namespace Zel::Detail {

void secureRandom(void* buffer, std::size_t size) {
    auto* out = static_cast<unsigned char*>(buffer);
    while (size > 0) {
        const ssize_t got = ::getrandom(out, size, 0);
        if (got < 0) {
            if (errno == EINTR) continue;
            throw GenericException(std::string("Secure random source failed | error=") +
                                   std::strerror(errno));
        }
        out += got;
        size -= static_cast<std::size_t>(got);
    }
}

} // namespace Zel::Detail
