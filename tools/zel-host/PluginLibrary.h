#pragma once

#include <Zel/Platform/PlatformCallback.h>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace ZelHost {

// A loaded plug-in module and its three entry points. Every reply is copied out and its buffer
// released with the shared reply allocator at once.
class PluginLibrary {
public:
    // std::runtime_error with a one-line reason when the file cannot be loaded or lacks an entry point.
    explicit PluginLibrary(const std::string& path);
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;
    ~PluginLibrary();

    std::string init(const std::string& document) const;
    std::string call(const std::string& service, const std::string& operation,
                     const std::string& params) const;
    std::string deinit() const;

private:
    using InitFunction = void (*)(const char*, std::uint64_t, char**, std::uint64_t*);
    using CallFunction = void (*)(const char*, std::uint64_t, const char*, std::uint64_t, const char*,
                                  std::uint64_t, char**, std::uint64_t*);
    using DeinitFunction = void (*)(char**, std::uint64_t*);

    void* m_handle = nullptr;
    InitFunction m_init = nullptr;
    CallFunction m_call = nullptr;
    DeinitFunction m_deinit = nullptr;
};

} // namespace ZelHost
