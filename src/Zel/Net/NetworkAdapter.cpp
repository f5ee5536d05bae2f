#include <Zel/IO/IOException.h>
#include <Zel/Net/NetworkAdapter.h>
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>

namespace Zel::Net {

std::vector<NetworkAdapter> NetworkAdapter::list() {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0)
        throw IO::IOException(std::string("Network adapters: cannot list | error=") + std::strerror(errno));
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, ::freeifaddrs);

    std::vector<NetworkAdapter> adapters;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        auto adapter = std::find_if(adapters.begin(), adapters.end(), [&](const NetworkAdapter& known) {
            return known.name == entry->ifa_name;
        });
        if (adapter == adapters.end()) {
            adapters.push_back({entry->ifa_name,
                                {},
                                (entry->ifa_flags & IFF_UP) != 0,
                                (entry->ifa_flags & IFF_LOOPBACK) != 0});
            adapter = adapters.end() - 1;
        }
        if (entry->ifa_addr == nullptr) continue;
        char text[INET6_ADDRSTRLEN] = {};
        if (entry->ifa_addr->sa_family == AF_INET)
            ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr, text,
                        sizeof text);
        else if (entry->ifa_addr->sa_family == AF_INET6)
            ::inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr)->sin6_addr, text,
                        sizeof text);
        else
            continue;
        adapter->addresses.emplace_back(text);
    }
    return adapters;
}

} // namespace Zel::Net
