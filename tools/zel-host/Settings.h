#pragma once

#include <Zel/Config/Configuration.h>
#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ZelHost {

// What the host is told to do, read from its configuration (file, ZEL_ environment, --set) and
// checked as a whole before anything starts, so that a bad setting stops the host at once with a
// message naming the setting and where it came from.
struct Settings {
    struct PluginModule {
        std::string module;
        Zel::Variant init; // extra members of the init document
    };

    std::string dataDirectory = "./zel-data";
    // Empty: the embedded database in the data directory.
    std::string databaseConnection;
    bool forcedWrites = true;
    std::size_t maxConnections = 16;
    std::chrono::milliseconds transactionIdleTimeout = std::chrono::seconds(60);
    std::size_t threads = 4;
    std::size_t cacheCapacity = 10000;
    std::chrono::milliseconds cacheTimeToLive{0}; // 0: entries do not expire
    std::string logFile;                          // empty: <data directory>/zel-host.log
    std::uint64_t logMaxBytes = 1024 * 1024;
    std::size_t logKeptFiles = 3;
    std::map<std::string, int> taskQueues = {{"default", 2}}; // name -> threads
    std::vector<PluginModule> plugins;
    // The HTTP front: "ADDRESS:PORT" to listen on (empty: none), a static folder served beside the
    // services and the bearer token every call must carry (empty: none).
    std::string httpListen;
    std::string httpStaticFolder;
    std::string httpBearerToken;

    // Zel::Config::ConfigException naming the path for a value of the wrong type or out of range.
    static Settings read(const Zel::Config::Configuration& config);
};

} // namespace ZelHost
