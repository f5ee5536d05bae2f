#pragma once

#include <Zel/Export.h>
#include <string>
#include <vector>

namespace Zel::Net {

// One network interface of this machine as the system lists it.
struct ZEL_API NetworkAdapter {
    std::string name;
    std::vector<std::string> addresses; // IPv4 and IPv6, in text form
    bool up = false;
    bool loopback = false;

    // Every interface, in the system's order. Throws IO::IOException "Network adapters: cannot list |
    // error=.." when the system refuses.
    static std::vector<NetworkAdapter> list();
};

} // namespace Zel::Net
