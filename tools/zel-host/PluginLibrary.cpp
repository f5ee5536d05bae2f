#include "PluginLibrary.h"

#include <Zel/Platform/ReplyAllocator.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace ZelHost {

namespace {

// The operating system's loader, in one place.
#ifdef _WIN32
void* openLibrary(const std::string& path, std::string& error) {
    HMODULE module = LoadLibraryA(path.c_str());
    if (module == nullptr) error = "error " + std::to_string(GetLastError());
    return module;
}
void* findSymbol(void* library, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}
void closeLibrary(void* library) {
    FreeLibrary(static_cast<HMODULE>(library));
}
#else
void* openLibrary(const std::string& path, std::string& error) {
    // A bare file name would send dlopen searching the library path rather than the directory the
    // user means.
    const std::string resolved = path.find('/') == std::string::npos ? "./" + path : path;
    void* library = dlopen(resolved.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) error = dlerror();
    return library;
}
void* findSymbol(void* library, const char* name) {
    return dlsym(library, name);
}
void closeLibrary(void* library) {
    dlclose(library);
}
#endif

std::string takeReply(char* reply, std::uint64_t length) {
    const Zel::Platform::ReplyPointer owned(reply);
    return reply == nullptr ? std::string() : std::string(reply, length);
}

} // namespace

PluginLibrary::PluginLibrary(const std::string& path) {
    std::string error;
    m_handle = openLibrary(path, error);
    if (m_handle == nullptr) throw std::runtime_error("cannot load plug-in module " + path + ": " + error);
    m_init = reinterpret_cast<InitFunction>(findSymbol(m_handle, "zelPluginInit"));
    m_call = reinterpret_cast<CallFunction>(findSymbol(m_handle, "zelPluginCall"));
    m_deinit = reinterpret_cast<DeinitFunction>(findSymbol(m_handle, "zelPluginDeinit"));
    if (m_init == nullptr || m_call == nullptr || m_deinit == nullptr) {
        closeLibrary(m_handle);
        throw std::runtime_error(path + " is not a Zel plug-in module: it does not export "
                                        "zelPluginInit, zelPluginCall and zelPluginDeinit");
    }
}

PluginLibrary::~PluginLibrary() {
    closeLibrary(m_handle);
}

std::string PluginLibrary::init(const std::string& document) const {
    char* reply = nullptr;
    std::uint64_t length = 0;
    m_init(document.data(), document.size(), &reply, &length);
    return takeReply(reply, length);
}

std::string PluginLibrary::call(const std::string& service, const std::string& operation,
                                const std::string& params) const {
    char* reply = nullptr;
    std::uint64_t length = 0;
    m_call(service.data(), service.size(), operation.data(), operation.size(), params.data(), params.size(),
           &reply, &length);
    return takeReply(reply, length);
}

std::string PluginLibrary::deinit() const {
    char* reply = nullptr;
    std::uint64_t length = 0;
    m_deinit(&reply, &length);
    return takeReply(reply, length);
}

} // namespace ZelHost
