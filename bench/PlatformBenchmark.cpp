// The cost of one call across the plug-in boundary, both ways, against the same round trip written
// by hand with nlohmann::json. After the table it prints calls per second and Zel's ratio to the
// hand-written version.
//
// Host to plug-in: the host calls the exported zelPluginCall entry point of a plug-in module (here
// compiled into the benchmark) with params {"a":1,"b":2}; the plug-in parses them, dispatches by
// service and operation, adds, builds the reply, serialises it into a reply buffer, which the
// host frees. The hand-written version parses with nlohmann, finds a std::function in a
// std::unordered_map, builds the reply object and dumps it.
//
// Plug-in to host: ServiceCaller::call against an in-process host callback that answers with a
// fixed reply; the plug-in writes the params, calls, parses the reply and takes its "data".

#include "CapturingReporter.h"

#include <Zel/Json/Object.h>
#include <Zel/Platform/PluginModule.h>
#include <Zel/Platform/ServiceCaller.h>
#include <Zel/Platform/ServiceException.h>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <unordered_map>

namespace {

class Math : public Zel::Platform::Service {
public:
    Math() : Service("Math") {
        on("sum", [](const Zel::Variant& params) {
            return static_cast<std::int64_t>(params["a"]) + static_cast<std::int64_t>(params["b"]);
        });
    }
};

std::shared_ptr<Zel::Platform::Plugin> createPlugin() {
    auto plugin = std::make_shared<Zel::Platform::Plugin>();
    plugin->setName("Bench").setConfigured();
    plugin->addService(std::make_shared<Math>());
    return plugin;
}

} // namespace

ZEL_PLUGIN_MODULE(createPlugin)

namespace {

const std::string service = "Math";
const std::string operation = "sum";
const std::string params = R"({"a":1,"b":2})";

void hostCallback(const char*, std::uint64_t, const char*, std::uint64_t, const char*, std::uint64_t,
                  char** reply, std::uint64_t* replyLength) {
    static constexpr std::string_view text = R"({"result":0,"data":3})";
    Zel::Platform::storeReply(text, reply, replyLength);
}

void initPlugin() {
    static const bool done = [] {
        char address[32];
        std::snprintf(address, sizeof address, "%llx",
                      static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(&hostCallback)));
        const std::string document = std::string(R"({"platformCallback":")") + address + "\"}";
        char* reply = nullptr;
        std::uint64_t length = 0;
        zelPluginInit(document.data(), document.size(), &reply, &length);
        const bool ok = std::string_view(reply, length).find(R"("result":0)") != std::string_view::npos;
        Zel::Platform::freeReply(reply);
        if (!ok) std::abort();
        return true;
    }();
    (void)done;
}

void zelRoundTrip(benchmark::State& state) {
    initPlugin();
    for (auto _ : state) {
        char* reply = nullptr;
        std::uint64_t length = 0;
        zelPluginCall(service.data(), service.size(), operation.data(), operation.size(), params.data(),
                      params.size(), &reply, &length);
        benchmark::DoNotOptimize(reply[length - 1]);
        Zel::Platform::freeReply(reply);
    }
    state.SetItemsProcessed(state.iterations());
}

// The usual hand-written dispatch: handlers by name, nlohmann for both directions.
using Handler = std::function<nlohmann::json(const nlohmann::json&)>;
const std::unordered_map<std::string, std::unordered_map<std::string, Handler>>& nlohmannServices() {
    static const std::unordered_map<std::string, std::unordered_map<std::string, Handler>> services = {
        {"Math", {{"sum", [](const nlohmann::json& p) {
                       return nlohmann::json(p.at("a").get<std::int64_t>() + p.at("b").get<std::int64_t>());
                   }}}}};
    return services;
}

void nlohmannRoundTrip(benchmark::State& state) {
    const auto& services = nlohmannServices();
    for (auto _ : state) {
        const char* serviceText = service.data();
        const char* operationText = operation.data();
        const nlohmann::json parsed = nlohmann::json::parse(params.data(), params.data() + params.size());
        const auto& handler = services.at(std::string(serviceText, service.size()))
                                  .at(std::string(operationText, operation.size()));
        nlohmann::json reply;
        reply["result"] = 0;
        reply["data"] = handler(parsed);
        std::string text = reply.dump();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(state.iterations());
}

void zelOutgoing(benchmark::State& state) {
    const Zel::Platform::ServiceCaller caller(&hostCallback);
    for (auto _ : state) {
        const std::string callParams = Zel::Json::Object().add("a", 1).add("b", 2).json();
        const Zel::Variant data = caller.call(service, operation, callParams);
        benchmark::DoNotOptimize(static_cast<std::int64_t>(data));
    }
    state.SetItemsProcessed(state.iterations());
}

void nlohmannOutgoing(benchmark::State& state) {
    for (auto _ : state) {
        nlohmann::json callParams;
        callParams["a"] = 1;
        callParams["b"] = 2;
        const std::string text = callParams.dump();
        char* reply = nullptr;
        std::uint64_t length = 0;
        hostCallback(service.data(), service.size(), operation.data(), operation.size(), text.data(),
                     text.size(), &reply, &length);
        const nlohmann::json parsed = nlohmann::json::parse(reply, reply + length);
        Zel::Platform::freeReply(reply);
        if (parsed.value("result", 0) == Zel::Platform::ServiceException::errorResult)
            throw std::runtime_error(parsed.value("errMsg", ""));
        benchmark::DoNotOptimize(parsed.at("data").get<std::int64_t>());
    }
    state.SetItemsProcessed(state.iterations());
}

void registerBenchmarks() {
    // One thread is measured in CPU time, which other load on a shared machine disturbs least; two
    // threads in wall time, since their total throughput is the point.
    benchmark::RegisterBenchmark("RoundTrip/Zel", zelRoundTrip);
    benchmark::RegisterBenchmark("RoundTrip/nlohmann", nlohmannRoundTrip);
    benchmark::RegisterBenchmark("RoundTrip/Zel", zelRoundTrip)->Threads(2)->UseRealTime();
    benchmark::RegisterBenchmark("RoundTrip/nlohmann", nlohmannRoundTrip)->Threads(2)->UseRealTime();
    benchmark::RegisterBenchmark("Outgoing/Zel", zelOutgoing);
    benchmark::RegisterBenchmark("Outgoing/nlohmann", nlohmannOutgoing);
}

void printRatios(const Zel::Bench::CapturingReporter& reporter) {
    std::cout << "\nZel against the hand-written nlohmann version (same run):\n";
    for (const char* threads : {"1", "2"}) {
        const std::string suffix = std::string(threads) == "1" ? "" : "/real_time/threads:2";
        const double zel = reporter.counter("RoundTrip/Zel" + suffix, "items_per_second");
        const double peer = reporter.counter("RoundTrip/nlohmann" + suffix, "items_per_second");
        std::printf("  host to plug-in, %s thread%s %.2fM calls/s (%.2fM per thread); Zel/nlohmann %s\n",
                    threads, std::string(threads) == "1" ? ": " : "s:", zel / 1e6,
                    zel / 1e6 / std::atoi(threads), Zel::Bench::formatRatio(zel, peer).c_str());
    }
    const double zel = reporter.counter("Outgoing/Zel", "items_per_second");
    const double peer = reporter.counter("Outgoing/nlohmann", "items_per_second");
    std::printf("  plug-in to host:    %.2fM calls/s; Zel/nlohmann %s\n", zel / 1e6,
                Zel::Bench::formatRatio(zel, peer).c_str());
}

} // namespace

int main(int argc, char** argv) {
    return Zel::Bench::runBenchmarks(argc, argv, "zel-bench-platform", registerBenchmarks, printRatios);
}
