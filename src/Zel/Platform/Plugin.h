#pragma once

#include <Zel/Detail/Fnv1aHash.h>
#include <Zel/Factory.h>
#include <Zel/Platform/CallbacksService.h>
#include <Zel/Platform/IPlugin.h>
#include <Zel/Platform/Service.h>
#include <Zel/Platform/ServiceCaller.h>
#include <Zel/ServiceLocator.h>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace Zel::Platform {

// The one object a plug-in module holds for its whole life. The host drives it in one order:
//
//     auto plugin = std::make_shared<Zel::Platform::Plugin>();
//     plugin->setName("Notes").setDescription("Keeps notes");     // and setOnInit / setOnDeinit
//     plugin->setConfigured();
//     plugin->addService(std::make_shared<NotesService>());
//     plugin->init(document);          // the host's callback address arrives here
//     plugin->call("Notes", "add", R"({"text":"hello"})");    // any number, from any thread
//     plugin->deinit();
//
// Each step is allowed in one state only and throws InvalidOperationException otherwise, leaving
// the state as it was. There is no way back and no second init.
//
// The constructor registers factories for the proxies of the host's services, by type:
// create<DataStoreProxy>(), create<EventsProxy>(), create<MessagesProxy>(),
// create<IServiceRegistry>(), create<PlatformLog>() and create<Log::ILog>() (a PlatformLogSink).
// They keep a reference to this plug-in's service caller and must not outlive it.
class ZEL_API Plugin : public IPlugin, public std::enable_shared_from_this<Plugin> {
public:
    enum class State { Created = 1, Configured = 2, Initialized = 4, Deinitialized = 8 };

    Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    ~Plugin() override;

    IServiceCaller& serviceCaller() override { return m_serviceCaller; }
    ServiceLocator& serviceLocator() override { return m_serviceLocator; }
    std::string name() const override { return m_name; }
    std::string description() const override { return m_description; }

    Plugin& setName(std::string name);
    Plugin& setDescription(std::string description);
    // Runs once at the start of init, before the host's callback is known.
    Plugin& setOnInit(std::function<void()> handler);
    // Runs once during deinit, after the services are gone and before the callback is.
    Plugin& setOnDeinit(std::function<void()> handler);
    Plugin& setConfigured();
    // A service whose reference is already taken is ignored.
    Plugin& addService(std::shared_ptr<Service> service);

    // Reads "platformCallback" (hexadecimal address) from the JSON document and returns the
    // registration reply, a map: {"result":0,"data":{"name","description","version":"",
    // "quitEvent":0,"services":[{"reference","interfaces"},...]}}.
    Variant init(const std::string& document);
    // GenericException "Unknown service: <reference>" for a service it does not hold.
    Variant call(const std::string& service, const std::string& operation, const std::string& params);
    void deinit();

    State state() const noexcept { return m_state.load(std::memory_order_acquire); }
    // Null after deinit.
    const std::shared_ptr<CallbacksService>& callbacks() const noexcept { return m_callbacks; }
    Factory& factory() noexcept { return m_factory; }

    template <class T>
    std::shared_ptr<T> create() const {
        return m_factory.create<T>();
    }

private:
    void enterService(std::shared_ptr<Service> service);

    std::atomic<State> m_state{State::Created};
    std::unordered_map<std::string, std::shared_ptr<Service>, Zel::Detail::Fnv1aHash, std::equal_to<>>
        m_services;
    std::vector<std::shared_ptr<Service>> m_servicesInOrder;
    ServiceCaller m_serviceCaller;
    ServiceLocator m_serviceLocator;
    Factory m_factory;
    std::mutex m_mutex;
    std::shared_ptr<CallbacksService> m_callbacks;
    std::string m_name;
    std::string m_description;
    std::function<void()> m_onInit;
    std::function<void()> m_onDeinit;
};

} // namespace Zel::Platform
