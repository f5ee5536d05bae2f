#include <Zel/Platform/ReplyAllocator.h>
#include <cstdlib>
#include <cstring>
#include <new>

#ifdef _WIN32
#include <objbase.h>
#endif

namespace Zel::Platform {

char* allocateReply(std::size_t size) {
#ifdef _WIN32
    void* reply = CoTaskMemAlloc(size == 0 ? 1 : size);
#else
    void* reply = std::malloc(size == 0 ? 1 : size);
#endif
    if (reply == nullptr) throw std::bad_alloc();
    return static_cast<char*>(reply);
}

void freeReply(char* reply) noexcept {
#ifdef _WIN32
    CoTaskMemFree(reply);
#else
    std::free(reply);
#endif
}

void storeReply(std::string_view text, char** reply, std::uint64_t* replyLength) {
    char* buffer = allocateReply(text.size());
    if (!text.empty()) std::memcpy(buffer, text.data(), text.size());
    *reply = buffer;
    *replyLength = text.size();
}

} // namespace Zel::Platform
