#include "Settings.h"

#include <Zel/Config/ConfigException.h>
#include <set>

namespace ZelHost {

namespace {

std::int64_t positive(const Zel::Config::Configuration& config, const std::string& path,
                      std::int64_t fallback, std::int64_t maximum) {
    const std::int64_t value = config.getInt(path, fallback);
    if (value < 1 || value > maximum)
        config.fail(path, "out of range | expected=1.." + std::to_string(maximum) +
                              " | found=" + std::to_string(value));
    return value;
}

} // namespace

Settings Settings::read(const Zel::Config::Configuration& config) {
    Settings settings;
    settings.dataDirectory = config.getString("dataDirectory", settings.dataDirectory);
    if (settings.dataDirectory.empty()) config.fail("dataDirectory", "must not be empty");
    settings.databaseConnection = config.getString("database.connection", "");
    settings.forcedWrites = config.getBool("database.forcedWrites", true);
    if (!settings.databaseConnection.empty() && config.has("database.forcedWrites"))
        config.fail("database.forcedWrites", "applies to the embedded database only, not to "
                                             "database.connection (set it on the database itself)");
    settings.maxConnections = static_cast<std::size_t>(positive(config, "database.maxConnections", 16, 1000));
    const double idleSeconds = config.getDouble("dataStore.transactionIdleSeconds", 60);
    if (!(idleSeconds > 0) || idleSeconds > 86400)
        config.fail("dataStore.transactionIdleSeconds", "out of range | expected=more than 0, at most 86400");
    settings.transactionIdleTimeout =
        std::chrono::milliseconds(static_cast<std::int64_t>(idleSeconds * 1000));
    settings.threads = static_cast<std::size_t>(positive(config, "threads", 4, 256));
    settings.cacheCapacity =
        static_cast<std::size_t>(positive(config, "cache.capacity", 10000, std::int64_t(1) << 32));
    const std::int64_t timeToLive = config.getInt("cache.defaultTtlMs", 0);
    if (timeToLive < 0) config.fail("cache.defaultTtlMs", "out of range | expected=0 or more");
    settings.cacheTimeToLive = std::chrono::milliseconds(timeToLive);
    settings.logFile = config.getString("log.file", "");
    settings.logMaxBytes =
        static_cast<std::uint64_t>(positive(config, "log.maxBytes", 1024 * 1024, std::int64_t(1) << 40));
    settings.logKeptFiles = static_cast<std::size_t>(config.getInt("log.keptFiles", 3));

    const Zel::Variant queues = config.getMap("tasks.queues");
    if (!queues.empty()) settings.taskQueues.clear();
    for (const auto& entry : queues) {
        const std::string path = "tasks.queues." + entry.key();
        settings.taskQueues[entry.key()] = static_cast<int>(positive(config, path, 1, 64));
    }

    settings.httpListen = config.getString("http.listen", "");
    if (!settings.httpListen.empty()) {
        const auto colon = settings.httpListen.rfind(':');
        const std::string port = colon == std::string::npos ? "" : settings.httpListen.substr(colon + 1);
        if (colon == 0 || port.empty() || port.size() > 5 ||
            port.find_first_not_of("0123456789") != std::string::npos || std::stoi(port) > 65535)
            config.fail("http.listen", "expected ADDRESS:PORT | found=" + settings.httpListen);
    }
    settings.httpStaticFolder = config.getString("http.staticFolder", "");
    settings.httpBearerToken = config.getString("http.bearerToken", "");
    std::set<std::string> modules;
    const Zel::Variant plugins = config.getList("plugins");
    for (int i = 0; i < static_cast<int>(plugins.size()); ++i) {
        const std::string path = "plugins." + std::to_string(i);
        const Zel::Variant& entry = plugins[i];
        PluginModule plugin;
        if (entry.isString()) {
            plugin.module = entry._string();
        } else if (entry.isMap() && entry.contains("module") && entry["module"].isString()) {
            plugin.module = entry["module"]._string();
        } else {
            config.fail("plugins",
                        "expected a module path or {\"module\": path, \"init\": {...}} | at=" + path);
        }
        plugin.init = entry.isMap() && entry.contains("init") ? entry["init"] : Zel::Variant::makeMap();
        if (!plugin.init.isMap()) config.fail("plugins", "expected an object | at=" + path + ".init");
        if (!modules.insert(plugin.module).second)
            config.fail("plugins", "a module is listed twice | module=" + plugin.module);
        settings.plugins.push_back(std::move(plugin));
    }
    return settings;
}

} // namespace ZelHost
