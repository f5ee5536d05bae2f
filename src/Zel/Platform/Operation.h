#pragma once

#include <string>

namespace Zel::Platform {

// An operation to be called later, typically by the host calling back into a plug-in: a callbacks
// service hands one of these out so that the host knows what to call.
struct Operation {
    std::string service;
    std::string operation;
    std::string params; // JSON text
};

} // namespace Zel::Platform
