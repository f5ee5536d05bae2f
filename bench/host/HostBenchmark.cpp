// zel-bench-host: data store writes through the whole plug-in boundary of the reference host against
// the same writes done directly on the database, in the same run. The host is the real zel-host
// process with the probe plug-in; each of the probe's calls writes a batch of keys through
// DataStoreProxy (plug-in -> callback -> host -> Firebird embedded), one call per key, auto-committed
// or inside one DataStoreTransaction. The peer writes the same keys with the same statement on a
// Zel::Db connection of its own to an embedded database file. Measured in wall time: the work runs
// in another process. Run on a quiet machine, e.g. --benchmark_min_time=2.

#include "../CapturingReporter.h"
#include "../../tests/Zel/Platform/HostProcess.h"

#include <Zel/Db/Connection.h>
#include <Zel/Json/Json.h>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace {

constexpr int transactionSize = 1000;
constexpr int autoCommitBatch = 50;

const std::string& scratch() {
    static const std::string directory = [] {
        std::string pattern = (std::filesystem::temp_directory_path() / "zel-bench-host-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
        return pattern;
    }();
    return directory;
}

// One host per forced-writes setting, started on first use and kept for the run.
HostProcess& host(bool forcedWrites) {
    static std::unique_ptr<HostProcess> hosts[2];
    auto& slot = hosts[forcedWrites ? 1 : 0];
    if (!slot) {
        const std::string data = scratch() + (forcedWrites ? "/host-forced" : "/host-async");
        slot = std::make_unique<HostProcess>(std::vector<std::string>{ZEL_PROBE_MODULE_PATH, "--data", data, "--set",
                                                                      std::string("database.forcedWrites=") +
                                                                          (forcedWrites ? "true" : "false")});
        slot->readLine(); // the probe's init reply
    }
    return *slot;
}

Zel::Db::Connection& direct(bool forcedWrites) {
    static std::unique_ptr<Zel::Db::Connection> connections[2];
    auto& slot = connections[forcedWrites ? 1 : 0];
    if (!slot) {
        slot = Zel::Db::Connection::create("Database=" + scratch() + (forcedWrites ? "/direct-forced.fdb" : "/direct-async.fdb") +
                                           ";Create=1;ForcedWrites=" + (forcedWrites ? "1" : "0"));
        slot->execute("CREATE TABLE zelDataStore (dsKey VARCHAR(400) NOT NULL PRIMARY KEY, dsValue BLOB SUB_TYPE TEXT)");
    }
    return *slot;
}

void throughHost(benchmark::State& state, bool forcedWrites, bool transaction) {
    HostProcess& process = host(forcedWrites);
    const int count = transaction ? transactionSize : autoCommitBatch;
    std::int64_t batch = 0;
    for (auto _ : state) {
        const std::string reply = process.call(R"(zel-probe.write {"prefix":"bench/)" + std::to_string(batch++ % 50) +
                                               R"(/","count":)" + std::to_string(count) +
                                               R"(,"transaction":)" + (transaction ? "true" : "false") + "}");
        if (reply.find(R"("result":0)") == std::string::npos) {
            state.SkipWithError(reply.c_str());
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void onDatabase(benchmark::State& state, bool forcedWrites, bool transaction) {
    Zel::Db::Connection& connection = direct(forcedWrites);
    const int count = transaction ? transactionSize : autoCommitBatch;
    std::int64_t batch = 0;
    for (auto _ : state) {
        const std::string prefix = "bench/" + std::to_string(batch++ % 50) + "/";
        if (transaction) connection.begin();
        for (int i = 0; i < count; ++i)
            connection.execute("UPDATE OR INSERT INTO zelDataStore (dsKey, dsValue) VALUES (?, ?) MATCHING (dsKey)",
                               {prefix + std::to_string(i), Zel::Variant(i).toJson()});
        if (transaction) connection.commit();
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void registerBenchmarks() {
    for (const bool forced : {true, false}) {
        const std::string writes = forced ? "/forcedWrites" : "/asyncWrites";
        benchmark::RegisterBenchmark(("Transaction1000/Host" + writes).c_str(), throughHost, forced, true)->UseRealTime();
        benchmark::RegisterBenchmark(("Transaction1000/Direct" + writes).c_str(), onDatabase, forced, true)->UseRealTime();
        benchmark::RegisterBenchmark(("AutoCommit/Host" + writes).c_str(), throughHost, forced, false)->UseRealTime();
        benchmark::RegisterBenchmark(("AutoCommit/Direct" + writes).c_str(), onDatabase, forced, false)->UseRealTime();
    }
}

void printRatios(const Zel::Bench::CapturingReporter& reporter) {
    std::printf("\nData store writes through the host's plug-in boundary against the same writes on the database (same run):\n");
    for (const char* writes : {"forcedWrites", "asyncWrites"}) {
        for (const char* kind : {"Transaction1000", "AutoCommit"}) {
            const std::string suffix = std::string("/") + writes + "/real_time";
            const double host = reporter.counter(std::string(kind) + "/Host" + suffix, "items_per_second");
            const double peer = reporter.counter(std::string(kind) + "/Direct" + suffix, "items_per_second");
            std::printf("  %-16s %-13s host %9.0f writes/s, direct %9.0f writes/s; host/direct %s\n", kind, writes, host,
                        peer, Zel::Bench::formatRatio(host, peer).c_str());
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    const int status = Zel::Bench::runBenchmarks(argc, argv, "zel-bench-host", registerBenchmarks, printRatios);
    std::error_code ignored;
    std::filesystem::remove_all(scratch(), ignored);
    return status;
}
