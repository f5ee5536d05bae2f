#pragma once

#include <Zel/Export.h>
#include <Zel/Platform/Plugin.h>
#include <Zel/Platform/ReplyAllocator.h>
#include <cstdint>
#include <functional>
#include <memory>

namespace Zel::Platform {

// The C boundary of a plug-in module. A module declares itself with one line,
//
//     ZEL_PLUGIN_MODULE(createPlugin)
//
// where createPlugin is a function returning a configured std::shared_ptr<Plugin> with its services
// added. That exports three C functions, which a host resolves by name:
//
//     void zelPluginInit(const char* document, uint64_t documentLength, char** reply, uint64_t* replyLength);
//     void zelPluginCall(const char* service, uint64_t serviceLength, const char* operation,
//                        uint64_t operationLength, const char* params, uint64_t paramsLength,
//                        char** reply, uint64_t* replyLength);
//     void zelPluginDeinit(char** reply, uint64_t* replyLength);
//
// Each always stores a JSON reply from allocateReply, which the host releases with freeReply. A map
// reply is serialised; a string reply already is the reply's text. Every exception becomes an error
// reply: a ServiceException its own toJson() (with the called service and operation filled in where
// it names none), anything else {"result":1359,"errMsg":<text>}. Nothing thrown crosses the boundary.
//
// Init creates the plug-in (again, after a deinit); calls reach whatever plug-in there is, so a
// call before init or after deinit is refused by the plug-in's own state check.
class ZEL_API PluginModule {
public:
    using CreatePlugin = std::function<std::shared_ptr<Plugin>()>;

    explicit PluginModule(CreatePlugin createPlugin);
    PluginModule(const PluginModule&) = delete;
    PluginModule& operator=(const PluginModule&) = delete;
    ~PluginModule();

    void init(const char* document, std::uint64_t documentLength, char** reply,
              std::uint64_t* replyLength) noexcept;
    void call(const char* service, std::uint64_t serviceLength, const char* operation,
              std::uint64_t operationLength, const char* params, std::uint64_t paramsLength, char** reply,
              std::uint64_t* replyLength) noexcept;
    void deinit(char** reply, std::uint64_t* replyLength) noexcept;

    // Null until the first init.
    const std::shared_ptr<Plugin>& plugin() const noexcept { return m_plugin; }

    // The reply text for a handler's result and for an exception in flight (call from a catch).
    static std::string replyText(const Variant& reply);
    static std::string errorReplyText() noexcept;
    // The same, naming the failed call where the exception does not name one itself.
    static std::string errorReplyText(const std::string& service, const std::string& operation) noexcept;

private:
    CreatePlugin m_createPlugin;
    std::shared_ptr<Plugin> m_plugin;
};

} // namespace Zel::Platform

#ifdef _WIN32
#define ZEL_PLUGIN_EXPORT extern "C" __declspec(dllexport)
#else
#define ZEL_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// Exports the three entry points of a plug-in module; use once, at namespace scope, in one source.
#define ZEL_PLUGIN_MODULE(createPlugin)                                                                      \
    static ::Zel::Platform::PluginModule& zelPluginModuleInstance() {                                        \
        static ::Zel::Platform::PluginModule module(createPlugin);                                           \
        return module;                                                                                       \
    }                                                                                                        \
    ZEL_PLUGIN_EXPORT void zelPluginInit(const char* document, std::uint64_t documentLength, char** reply,   \
                                         std::uint64_t* replyLength) noexcept {                              \
        zelPluginModuleInstance().init(document, documentLength, reply, replyLength);                        \
    }                                                                                                        \
    ZEL_PLUGIN_EXPORT void zelPluginCall(const char* service, std::uint64_t serviceLength,                   \
                                         const char* operation, std::uint64_t operationLength,               \
                                         const char* params, std::uint64_t paramsLength, char** reply,       \
                                         std::uint64_t* replyLength) noexcept {                              \
        zelPluginModuleInstance().call(service, serviceLength, operation, operationLength, params,           \
                                       paramsLength, reply, replyLength);                                    \
    }                                                                                                        \
    ZEL_PLUGIN_EXPORT void zelPluginDeinit(char** reply, std::uint64_t* replyLength) noexcept {              \
        zelPluginModuleInstance().deinit(reply, replyLength);                                                \
    }
