// zel-host: the reference host. Reads its configuration, opens its database, loads and initialises
// the plug-in modules, runs calls and de-initialises them; every reply is printed as one JSON line on
// standard output, everything else (the plug-ins' log, messages, errors) goes to standard error.

#include "Host.h"
#include "HttpFront.h"
#include "Settings.h"

#include <Zel/Config/ConfigException.h>
#include <Zel/Config/Configuration.h>
#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <csignal>
#include <cstring>
#include <deque>
#include <future>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr const char* usage =
    R"(usage: zel-host [MODULE]... [--config FILE] [--data DIR] [--set PATH=VALUE]... [--init JSON]
                [--echo] [--call SERVICE.OPERATION [JSON]]... [--http ADDRESS:PORT]

Opens the host's database, loads the plug-in modules of the configuration and then the MODULEs,
initialises each and prints its init reply, runs the calls and de-initialises the plug-ins in reverse
order. Without --call, calls are read from standard input, one per line:
    SERVICE.OPERATION [JSON]
(empty lines and lines starting with # are skipped; a line starting with & runs on the host's pool
of threads, concurrently with the next ones, its reply still printed in the order of the lines;
"wait MS" pauses the session, for tasks the plug-ins left with the host).
A call may name a service of any plug-in or of the host (DataStore, Events, Messages, PlatformLog,
ServiceRegistry, Tasks). Each reply is printed as one line of JSON.

  --config FILE     the configuration, a JSON file (see the README); ZEL_... variables override it
  --data DIR        the data directory: embedded database and log (default ./zel-data)
  --set PATH=VALUE  one setting by dotted path, over the file and the environment; repeatable
  --init JSON       extra members for the init document of the MODULEs given here (a JSON object)
  --echo            print each call on standard error before its reply
  --call S.O J      call operation O of service S with params J (default {}); repeatable
  --http ADDR:PORT  serve the services over HTTP (POST /services/SERVICE/OPERATION, GET /health)
                    after the --call calls, until SIGINT or SIGTERM; standard input is not read

Exit status: 0 when every call was made, 1 when input was bad (malformed call or JSON, unknown
service) or a plug-in failed to load or init, 2 when the configuration or the command line is
wrong, the database cannot be opened or no module given could be loaded.
)";

struct Call {
    std::string service;
    std::string operation;
    std::string params;
};

struct Options {
    std::vector<std::string> modules;
    std::string configFile;
    std::optional<std::string> dataDirectory;
    std::vector<std::string> settings;
    std::string initExtra;
    bool echo = false;
    std::vector<Call> calls;
    bool interactive = true;
    std::optional<std::string> http;
};

class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// "Service.operation" -> its parts; std::runtime_error when either is missing.
Call parseTarget(const std::string& target) {
    const auto dot = target.find('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == target.size())
        throw std::runtime_error("expected SERVICE.OPERATION, got '" + target + "'");
    return Call{target.substr(0, dot), target.substr(dot + 1), "{}"};
}

Options parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw UsageError(argument + " needs a value");
            return argv[++i];
        };
        if (argument == "--help" || argument == "-h") {
            std::cout << usage;
            std::exit(0);
        } else if (argument == "--init") {
            options.initExtra = value();
        } else if (argument == "--config") {
            options.configFile = value();
        } else if (argument == "--data") {
            options.dataDirectory = value();
        } else if (argument == "--set") {
            options.settings.push_back(value());
        } else if (argument == "--http") {
            options.http = value();
            options.interactive = false;
        } else if (argument == "--echo") {
            options.echo = true;
        } else if (argument == "--call") {
            Call call = parseTarget(value());
            // The params are optional: the next argument is taken only when it is not an option.
            if (i + 1 < argc && std::strncmp(argv[i + 1], "--", 2) != 0) call.params = argv[++i];
            options.calls.push_back(std::move(call));
            options.interactive = false;
        } else if (argument.starts_with("-")) {
            throw UsageError("unknown option " + argument);
        } else {
            options.modules.push_back(argument);
        }
    }
    return options;
}

std::string trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// "Service.operation {json}" -> the call; std::nullopt for a line to skip.
std::optional<Call> parseLine(const std::string& line) {
    const std::string text = trim(line);
    if (text.empty() || text[0] == '#') return std::nullopt;
    const auto space = text.find_first_of(" \t");
    Call call = parseTarget(text.substr(0, space));
    if (space != std::string::npos) {
        const std::string params = trim(text.substr(space));
        if (!params.empty()) call.params = params;
    }
    return call;
}

class Session {
public:
    Session(const Options& options, ZelHost::Host& host) : m_options(options), m_host(host) {}
    ~Session() { drain(); }

    // False when the call was refused as bad input.
    bool run(const Call& call, bool concurrently) {
        if (m_options.echo)
            std::cerr << "> " << (concurrently ? "& " : "") << call.service << '.' << call.operation << ' '
                      << call.params << '\n';
        if (!m_host.knows(call.service)) {
            std::string known;
            for (const auto& name : m_host.serviceNames())
                known += (known.empty() ? "" : ", ") + name;
            std::cerr << "zel-host: unknown service '" << call.service << "' (known: " << known << ")\n";
            return false;
        }
        try {
            Zel::Json::parse(call.params);
        } catch (const Zel::GenericException& error) {
            std::cerr << "zel-host: malformed JSON params for " << call.service << '.' << call.operation
                      << ": " << error.what() << '\n';
            return false;
        }
        if (concurrently) {
            auto reply = std::make_shared<std::promise<std::string>>();
            m_pending.push_back(reply->get_future());
            m_host.post([this, call, reply] {
                reply->set_value(m_host.call(call.service, call.operation, call.params));
            });
            return true;
        }
        drain();
        std::cout << m_host.call(call.service, call.operation, call.params) << std::endl;
        return true;
    }

    // Prints the replies of the concurrent calls still out, in the order they were made.
    void drain() {
        for (; !m_pending.empty(); m_pending.pop_front())
            std::cout << m_pending.front().get() << std::endl;
    }

private:
    const Options& m_options;
    ZelHost::Host& m_host;
    std::deque<std::future<std::string>> m_pending;
};

Zel::Config::Configuration configuration(const Options& options) {
    Zel::Config::Configuration config;
    if (!options.configFile.empty()) config.addFile(options.configFile);
    config.addEnvironment("ZEL_");
    for (const std::string& setting : options.settings)
        config.setArgument(setting);
    if (options.dataDirectory)
        config.set("dataDirectory", Zel::Variant(*options.dataDirectory).toJson(), "--data");
    if (options.http) config.set("http.listen", Zel::Variant(*options.http).toJson(), "--http");
    return config;
}

// Serves the host's services over HTTP until SIGINT or SIGTERM. The signals were blocked in every
// thread before any was started, so this thread alone receives them, through sigwait().
bool serveHttp(const ZelHost::Settings& settings, ZelHost::Host& host, const sigset_t& stopSignals) {
    const auto colon = settings.httpListen.rfind(':');
    ZelHost::HttpFront::Options frontOptions;
    frontOptions.address = settings.httpListen.substr(0, colon);
    frontOptions.port = static_cast<std::uint16_t>(std::stoi(settings.httpListen.substr(colon + 1)));
    frontOptions.staticFolder = settings.httpStaticFolder;
    frontOptions.bearerToken = settings.httpBearerToken;
    frontOptions.callThreads = static_cast<int>(settings.threads);
    try {
        ZelHost::HttpFront front(
            [&host](const std::string& service, const std::string& operation, const std::string& params) {
                return host.call(service, operation, params);
            },
            frontOptions);
        front.start();
        std::cerr << "zel-host: serving HTTP on " << frontOptions.address << ':' << front.port() << std::endl;
        int signal = 0;
        sigwait(&stopSignals, &signal);
        std::cerr << "zel-host: stopping (signal " << signal << ")" << std::endl;
        front.stop();
        return true;
    } catch (const std::exception& error) {
        std::cerr << "zel-host: cannot serve HTTP on " << settings.httpListen << ": " << error.what() << '\n';
        return false;
    }
}

int run(const Options& options) {
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    ZelHost::Settings settings;
    std::vector<ZelHost::Settings::PluginModule> modules;
    try {
        settings = ZelHost::Settings::read(configuration(options));
        modules = settings.plugins;
        Zel::Variant extra =
            options.initExtra.empty() ? Zel::Variant::makeMap() : Zel::Json::parse(options.initExtra);
        if (!extra.isMap()) throw Zel::GenericException("the init document must be a JSON object");
        for (const std::string& module : options.modules)
            modules.push_back({module, extra});
    } catch (const Zel::Config::ConfigException& error) {
        std::cerr << "zel-host: " << error.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "zel-host: bad --init document: " << error.what() << '\n';
        return 2;
    }

    const bool serving = !settings.httpListen.empty();
    if (serving) pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr); // before the host starts threads
    std::optional<ZelHost::Host> host;
    try {
        host.emplace(settings);
    } catch (const std::exception& error) {
        std::cerr << "zel-host: cannot start: " << error.what() << '\n';
        return 2;
    }

    // A module that fails is reported and left out; the others go on.
    std::size_t failed = 0;
    for (const auto& module : modules) {
        std::string initReply;
        const std::string failure = host->load(module, initReply);
        if (!initReply.empty()) std::cout << initReply << std::endl;
        if (!failure.empty()) {
            std::cerr << "zel-host: " << failure << '\n';
            ++failed;
        }
    }
    if (failed > 0 && failed == modules.size()) return 2;

    bool allGood = failed == 0;
    {
        Session session(options, *host);
        if (!options.interactive || serving) {
            for (const Call& call : options.calls)
                allGood = session.run(call, false) && allGood;
            if (serving) allGood = serveHttp(settings, *host, stopSignals) && allGood;
        } else {
            std::string line;
            while (std::getline(std::cin, line)) {
                try {
                    std::string text = trim(line);
                    if (text.starts_with("wait ")) {
                        // A pause in a scripted session, for work the host does later (tasks).
                        session.drain();
                        std::this_thread::sleep_for(std::chrono::milliseconds(std::stoll(text.substr(5))));
                        continue;
                    }
                    const bool concurrently = text.starts_with("&");
                    if (concurrently) text = text.substr(1);
                    if (const auto call = parseLine(text))
                        allGood = session.run(*call, concurrently) && allGood;
                } catch (const std::exception& error) {
                    std::cerr << "zel-host: " << error.what() << '\n';
                    allGood = false;
                }
            }
        }
    }

    for (const std::string& reply : host->unloadAll())
        std::cout << reply << std::endl;
    return allGood ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(parseOptions(argc, argv));
    } catch (const UsageError& error) {
        std::cerr << "zel-host: " << error.what() << "\n\n" << usage;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "zel-host: " << error.what() << '\n';
        return 2;
    }
}
