#pragma once

#include "Settings.h"

#include <Zel/Platform/Service.h>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Zel::Log {
class ILog;
}

namespace ZelHost {

class Database;
class DataStoreService;
class PluginLibrary;
class ServiceRegistryService;
class TasksService;

// The host side of the call envelope. It owns the host's services (on the database the settings
// name), the plug-in modules it loaded, and a pool of threads that runs calls concurrently.
//
// Every plug-in reaches the host through a callback of its own (a plain function pointer carries no
// state, so there is one per slot, up to maxPlugins), which tells the host who is calling. A call
// to a host service is answered here; a call to a service of another plug-in is passed on to it.
// One Host serves one process.
class Host {
public:
    static constexpr std::size_t maxPlugins = 32;

    // Opens the database (creating its tables on first run) and starts the services.
    // Zel::Db::DbException when the database cannot be opened.
    explicit Host(const Settings& settings);
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    // De-initialises the plug-ins still loaded, in reverse order.
    ~Host();

    // Loads and initialises one module. On failure the reason, naming the module, is returned and
    // the host goes on without it; on success the init reply's text is in `initReply`.
    std::string load(const Settings::PluginModule& module, std::string& initReply);
    // De-initialises the plug-ins in reverse order of loading and rolls back what they left open;
    // returns each deinit reply.
    std::vector<std::string> unloadAll();

    // A call from the host's own session; never throws, an error is the error reply.
    std::string call(const std::string& service, const std::string& operation, const std::string& params);
    bool knows(const std::string& service) const;
    // Every service a call can reach, in byte-wise order.
    std::vector<std::string> serviceNames() const;

    // Runs `work` on the host's pool.
    void post(std::function<void()> work);

private:
    struct Slot;

    using Callback = void (*)(const char*, std::uint64_t, const char*, std::uint64_t, const char*,
                              std::uint64_t, char**, std::uint64_t*);
    template <std::size_t... Index>
    static constexpr std::array<Callback, sizeof...(Index)> callbackTable(std::index_sequence<Index...>) {
        return {&callback<Index>...};
    }
    template <std::size_t Index>
    static void callback(const char* service, std::uint64_t serviceLength, const char* operation,
                         std::uint64_t operationLength, const char* params, std::uint64_t paramsLength,
                         char** reply, std::uint64_t* replyLength);
    static void fromPlugin(std::size_t slot, const char* service, std::uint64_t serviceLength,
                           const char* operation, std::uint64_t operationLength, const char* params,
                           std::uint64_t paramsLength, char** reply, std::uint64_t* replyLength) noexcept;

    std::string handle(const std::string& caller, const std::string& service, const std::string& operation,
                       const std::string& params);
    static std::string forward(const std::string& module, const PluginLibrary& library,
                               const std::string& service, const std::string& operation,
                               const std::string& params);
    void unload(Slot& slot, std::vector<std::string>& replies);
    void runPool();

    static std::atomic<Host*> s_instance;

    Settings m_settings;
    std::shared_ptr<Zel::Log::ILog> m_logFile;
    std::shared_ptr<Database> m_database;
    std::shared_ptr<DataStoreService> m_dataStore;
    std::shared_ptr<ServiceRegistryService> m_registry;
    std::shared_ptr<TasksService> m_tasks;
    std::map<std::string, std::shared_ptr<Zel::Platform::Service>, std::less<>> m_services;

    // Filled while loading, on one thread, before calls from several threads begin.
    // A slot is filled before its plug-in's init, so that its callback finds it, and only read
    // from then on; the routes change when plug-ins come and go, while tasks may be calling.
    std::array<std::unique_ptr<Slot>, maxPlugins> m_slots;
    std::size_t m_slotCount = 0;
    mutable std::shared_mutex m_routesMutex;
    std::map<std::string, std::size_t, std::less<>> m_routes; // plug-in service -> slot

    std::mutex m_poolMutex;
    std::condition_variable m_poolWake;
    std::deque<std::function<void()>> m_work;
    bool m_poolStopping = false;
    std::vector<std::thread> m_pool;
};

} // namespace ZelHost
