#pragma once

#include <cstdint>

namespace Zel::Platform {

// The one function through which a plug-in calls its host. Every string travels as pointer and
// length (no terminating zero is relied on). The host stores the reply, JSON text, through the last
// two arguments in a buffer from allocateReply (<Zel/Platform/ReplyAllocator.h>); its ownership
// passes to the caller, which releases it with freeReply.
using PlatformCallback = void (*)(const char* service, std::uint64_t serviceLength, const char* operation,
                                  std::uint64_t operationLength, const char* params,
                                  std::uint64_t paramsLength, char** reply, std::uint64_t* replyLength);

} // namespace Zel::Platform
