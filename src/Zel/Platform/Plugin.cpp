#include <Zel/GenericException.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Json/Json.h>
#include <Zel/Platform/DataStoreProxy.h>
#include <Zel/Platform/EventsProxy.h>
#include <Zel/Platform/MessagesProxy.h>
#include <Zel/Platform/PlatformLog.h>
#include <Zel/Platform/PlatformLogSink.h>
#include <Zel/Platform/Plugin.h>
#include <Zel/Platform/ServiceRegistryProxy.h>
#include <Zel/StringUtils.h>
#include <cstdint>
#include <exception>

namespace Zel::Platform {

namespace {

template <class Interface, class Implementation>
void addProxyFactory(Factory& factory, const IServiceCaller& caller) {
    factory.add<Interface>(
        [&caller]() -> std::shared_ptr<Interface> { return std::make_shared<Implementation>(caller); });
}

} // namespace

Plugin::Plugin() : m_callbacks(std::make_shared<CallbacksService>()) {
    m_serviceLocator.add<CallbacksService>(m_callbacks);
    addProxyFactory<DataStoreProxy, DataStoreProxy>(m_factory, m_serviceCaller);
    addProxyFactory<EventsProxy, EventsProxy>(m_factory, m_serviceCaller);
    addProxyFactory<MessagesProxy, MessagesProxy>(m_factory, m_serviceCaller);
    addProxyFactory<IServiceRegistry, ServiceRegistryProxy>(m_factory, m_serviceCaller);
    addProxyFactory<PlatformLog, PlatformLog>(m_factory, m_serviceCaller);
    addProxyFactory<Log::ILog, PlatformLogSink>(m_factory, m_serviceCaller);
}

Plugin::~Plugin() = default;

Plugin& Plugin::setName(std::string name) {
    m_name = std::move(name);
    return *this;
}

Plugin& Plugin::setDescription(std::string description) {
    m_description = std::move(description);
    return *this;
}

Plugin& Plugin::setOnInit(std::function<void()> handler) {
    if (state() != State::Created) ZEL_THROW_INVALID_OPERATION();
    m_onInit = std::move(handler);
    return *this;
}

Plugin& Plugin::setOnDeinit(std::function<void()> handler) {
    if (state() != State::Created) ZEL_THROW_INVALID_OPERATION();
    m_onDeinit = std::move(handler);
    return *this;
}

Plugin& Plugin::setConfigured() {
    if (state() != State::Created) ZEL_THROW_INVALID_OPERATION();
    m_callbacks->setName(m_name);
    enterService(m_callbacks);
    m_state.store(State::Configured, std::memory_order_release);
    return *this;
}

Plugin& Plugin::addService(std::shared_ptr<Service> service) {
    if (state() != State::Configured) ZEL_THROW_INVALID_OPERATION();
    enterService(std::move(service));
    return *this;
}

void Plugin::enterService(std::shared_ptr<Service> service) {
    if (!service) throw GenericException("Plugin: null service");
    if (m_services.contains(service->reference())) return;
    service->_onAddedToPlugin(*this);
    m_servicesInOrder.push_back(service);
    m_services.emplace(service->reference(), std::move(service));
}

Variant Plugin::init(const std::string& document) {
    if (state() != State::Configured) ZEL_THROW_INVALID_OPERATION();

    // Deliberately before the document is read: the handler cannot call the host yet.
    if (m_onInit) {
        const auto handler = std::move(m_onInit);
        m_onInit = nullptr;
        handler();
    }

    const Variant parsed = Json::parse(document);
    const std::string address = static_cast<std::string>(parsed["platformCallback"]);
    const auto callback = static_cast<std::uintptr_t>(StringUtils::stoull(address, nullptr, 16));

    Variant services = Variant::makeVector();
    for (const auto& service : m_servicesInOrder) {
        Variant entry = Variant::makeMap();
        entry.setAt("reference", service->reference());
        entry.setAt("interfaces", service->interfaces());
        services.push_back(std::move(entry));
    }

    m_serviceCaller.setPlatformCallback(reinterpret_cast<PlatformCallback>(callback));
    m_state.store(State::Initialized, std::memory_order_release);

    Variant data = Variant::makeMap();
    data.setAt("name", m_name);
    data.setAt("description", m_description);
    data.setAt("version", "");
    data.setAt("quitEvent", 0);
    data.setAt("services", std::move(services));
    Variant reply = Variant::makeMap();
    reply.setAt("result", 0);
    reply.setAt("data", std::move(data));
    return reply;
}

Variant Plugin::call(const std::string& service, const std::string& operation, const std::string& params) {
    if (state() != State::Initialized) ZEL_THROW_INVALID_OPERATION();
    const auto it = m_services.find(service);
    if (it == m_services.end()) throw GenericException("Unknown service: " + service);
    return it->second->call(operation, params);
}

void Plugin::deinit() {
    if (state() != State::Initialized) ZEL_THROW_INVALID_OPERATION();
    m_services.clear();
    m_servicesInOrder.clear();
    {
        const std::lock_guard lock(m_mutex);
        m_serviceLocator.clear();
        m_factory.clear();
    }
    // A failing handler must not leave the plug-in half torn down: finish, then report.
    std::exception_ptr failure;
    if (m_onDeinit) {
        const auto handler = std::move(m_onDeinit);
        m_onDeinit = nullptr;
        try {
            handler();
        } catch (...) {
            failure = std::current_exception();
        }
    }
    m_callbacks.reset();
    m_serviceCaller.setPlatformCallback(nullptr);
    m_state.store(State::Deinitialized, std::memory_order_release);
    if (failure) std::rethrow_exception(failure);
}

} // namespace Zel::Platform
