// A plug-in module for the host's tests and benchmark. Its name and its one service are named after
// its file ("zel-probe" for zel-probe.so), so that copies of the file load as distinct plug-ins.
//
//   call {"service", "operation", "params"}  -> the data of that call to the host, made through this
//                                               plug-in's callback (so as this plug-in)
//   write {"prefix", "count", "transaction"} -> writes count keys through DataStoreProxy, in one
//                                               DataStoreTransaction when transaction is true
//   malformed {}                             -> a reply that is not JSON
//   throw {}                                 -> throws a std::runtime_error
// With ZEL_PROBE_REFUSE_INIT set in the environment it refuses init.

#include <Zel/Platform/DataStoreProxy.h>
#include <Zel/Platform/DataStoreTransaction.h>
#include <Zel/Platform/PluginModule.h>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <stdexcept>

namespace {

std::string moduleName() {
    Dl_info info{};
    dladdr(reinterpret_cast<void*>(&moduleName), &info);
    return std::filesystem::path(info.dli_fname != nullptr ? info.dli_fname : "zel-probe").stem().string();
}

class ProbeService : public Zel::Platform::Service {
public:
    explicit ProbeService(const std::string& name) : Service(name) {
        addInterface("IProbe");
        on("call", [this](const Zel::Variant& params) {
            return plugin().serviceCaller().call(params["service"], params["operation"],
                                                 params["params"].toJson());
        });
        on("write", [this](const Zel::Variant& params) {
            const auto store =
                static_cast<Zel::Platform::Plugin&>(plugin()).create<Zel::Platform::DataStoreProxy>();
            const std::string prefix = params["prefix"];
            const std::int64_t count = params["count"];
            if (static_cast<bool>(params["transaction"])) {
                Zel::Platform::DataStoreTransaction transaction(*store);
                for (std::int64_t i = 0; i < count; ++i)
                    transaction.setKey(prefix + std::to_string(i), i);
                transaction.commit();
            } else {
                for (std::int64_t i = 0; i < count; ++i)
                    store->setKey(prefix + std::to_string(i), i);
            }
            return count;
        });
        addOperation("malformed", [](const std::string&) { return Zel::Variant("{\"result\":0,\"data\":"); });
        on("throw", []() -> Zel::Variant { throw std::runtime_error("Probe failed on purpose"); });
    }
};

std::shared_ptr<Zel::Platform::Plugin> createPlugin() {
    const std::string name = moduleName();
    auto plugin = std::make_shared<Zel::Platform::Plugin>();
    plugin->setName(name).setDescription("Probes the host");
    plugin->setOnInit([] {
        if (std::getenv("ZEL_PROBE_REFUSE_INIT") != nullptr) throw std::runtime_error("Probe refuses init");
    });
    plugin->setConfigured();
    plugin->addService(std::make_shared<ProbeService>(name));
    return plugin;
}

} // namespace

ZEL_PLUGIN_MODULE(createPlugin)
