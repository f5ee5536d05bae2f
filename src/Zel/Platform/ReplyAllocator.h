#pragma once

#include <Zel/Export.h>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace Zel::Platform {

// Reply buffers cross the boundary between host and plug-in, so both sides must allocate and free
// them with the same allocator, whatever runtime each was built with: the COM task allocator on
// Windows, the C heap elsewhere. Host and plug-in both use these functions and nothing else.

// Throws std::bad_alloc when out of memory. A size of 0 still returns a unique pointer.
ZEL_API char* allocateReply(std::size_t size);
// Accepts null.
ZEL_API void freeReply(char* reply) noexcept;

// Copies `text` into a new reply buffer and stores pointer and length through the out-parameters.
ZEL_API void storeReply(std::string_view text, char** reply, std::uint64_t* replyLength);

struct ReplyDeleter {
    void operator()(char* reply) const noexcept { freeReply(reply); }
};
// Owns a reply buffer received from the other side.
using ReplyPointer = std::unique_ptr<char, ReplyDeleter>;

} // namespace Zel::Platform
