#include "HostApplication.h"

#include "Host.h"
#include "HttpFront.h"
#include "Settings.h"

#include <Zel/Config/ConfigException.h>
#include <Zel/Config/Configuration.h>
#include <Zel/Console/UsageException.h>
#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/StringUtils.h>
#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <future>
#include <iostream>
#include <optional>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace ZelHost {

namespace {

constexpr const char* description =
    R"(Opens the host's database, loads the plug-in modules of the configuration and then the MODULEs,
initialises each and prints its init reply, runs the calls and de-initialises the plug-ins in reverse
order. Without --call or --http, calls are read from standard input, one per line:
    SERVICE.OPERATION [JSON]
(empty lines and lines starting with # are skipped; a line starting with & runs on the host's pool
of threads, concurrently with the next ones, its reply still printed in the order of the lines;
"wait MS" pauses the session, for tasks the plug-ins left with the host).
A call may name a service of any plug-in or of the host (Cache, DataStore, Events, Messages,
PlatformLog, ServiceRegistry, Tasks). Each reply is printed as one line of JSON. SIGINT or SIGTERM
ends the session (or the serving) and de-initialises the plug-ins.

Exit status: 0 when every call was made, 1 when input was bad (malformed call or JSON, unknown
service) or a plug-in failed to load or init, 2 when the configuration or the command line is
wrong, the database cannot be opened or no module given could be loaded.)";

struct Call {
    std::string service;
    std::string operation;
    std::string params = "{}";
};

// "Service.operation" -> its parts; std::nullopt when either is missing.
std::optional<Call> parseTarget(std::string_view target) {
    const auto dot = target.find('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == target.size()) return std::nullopt;
    return Call{std::string(target.substr(0, dot)), std::string(target.substr(dot + 1))};
}

// "Service.operation {json}" -> the call; std::nullopt for a line to skip; std::runtime_error for a
// line that names no call.
std::optional<Call> parseLine(std::string_view line) {
    const std::string_view text = Zel::StringUtils::trimBlanks(line);
    if (text.empty() || text[0] == '#') return std::nullopt;
    const auto space = text.find_first_of(" \t");
    auto call = parseTarget(text.substr(0, space));
    if (!call)
        throw std::runtime_error("expected SERVICE.OPERATION, got '" + std::string(text.substr(0, space)) +
                                 "'");
    if (space != std::string_view::npos) {
        const std::string_view params = Zel::StringUtils::trimBlanks(text.substr(space));
        if (!params.empty()) call->params = params;
    }
    return call;
}

// Lines of standard input, read without blocking a stop: the wait for more input also watches the
// application's wake pipe.
class InputLines {
public:
    explicit InputLines(int wake) : m_wake(wake) {}

    // False at the end of input or when a stop was requested.
    bool next(std::string& line) {
        for (;;) {
            if (const auto end = m_buffer.find('\n'); end != std::string::npos) {
                line.assign(m_buffer, 0, end > 0 && m_buffer[end - 1] == '\r' ? end - 1 : end);
                m_buffer.erase(0, end + 1);
                return true;
            }
            if (m_ended) {
                if (m_buffer.empty()) return false;
                line = std::move(m_buffer);
                m_buffer.clear();
                return true;
            }
            pollfd watched[] = {{0, POLLIN, 0}, {m_wake, POLLIN, 0}};
            if (::poll(watched, 2, -1) < 0) {
                if (errno == EINTR) continue;
                return false;
            }
            if (watched[1].revents != 0) return false;
            char chunk[4096];
            const ssize_t got = ::read(0, chunk, sizeof chunk);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0)
                m_ended = true;
            else
                m_buffer.append(chunk, static_cast<std::size_t>(got));
        }
    }

private:
    int m_wake;
    std::string m_buffer;
    bool m_ended = false;
};

class Session {
public:
    Session(bool echo, Host& host) : m_echo(echo), m_host(host) {}
    ~Session() { drain(); }

    // False when the call was refused as bad input.
    bool run(const Call& call, bool concurrently) {
        if (m_echo)
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
    bool m_echo;
    Host& m_host;
    std::deque<std::future<std::string>> m_pending;
};

Zel::Config::Configuration configuration(const Zel::Console::Arguments& arguments) {
    Zel::Config::Configuration config;
    if (arguments.has("config")) config.addFile(arguments.string("config"));
    config.addEnvironment("ZEL_");
    for (const std::string& setting : arguments.list("set"))
        config.setArgument(setting);
    if (arguments.has("data"))
        config.set("dataDirectory", Zel::Variant(arguments.string("data")).toJson(), "--data");
    if (arguments.has("http"))
        config.set("http.listen", Zel::Variant(arguments.string("http")).toJson(), "--http");
    return config;
}

} // namespace

HostApplication::HostApplication() : Application("zel-host", description) {
    auto& cli = commandLine();
    cli.positionalList("MODULE", "plug-in modules to load after those of the configuration");
    cli.option("config", Zel::Console::ValueType::String,
               "the configuration: a JSON, INI or XML file (see the README); ZEL_... variables override it")
        .valueName("file");
    cli.option("data", Zel::Console::ValueType::String,
               "the data directory: embedded database and log (default ./zel-data)")
        .valueName("dir");
    cli.option("set", Zel::Console::ValueType::List,
               "one setting by dotted path, over the file and the environment")
        .valueName("path=value");
    cli.option("init", Zel::Console::ValueType::String,
               "extra members for the init document of the MODULEs given here (a JSON object)")
        .valueName("json");
    cli.option("echo", Zel::Console::ValueType::Flag, "print each call on standard error before its reply");
    cli.option("call", Zel::Console::ValueType::List,
               "call OPERATION of SERVICE with the params (default {}); standard input is not read")
        .valueCount(1, 2)
        .valueName("SERVICE.OPERATION JSON");
    cli.option("http", Zel::Console::ValueType::String,
               "serve the services over HTTP (POST /services/SERVICE/OPERATION, GET /health) after the "
               "calls, until SIGINT or SIGTERM; standard input is not read")
        .valueName("address:port");
    if (::pipe2(m_wake, O_CLOEXEC) != 0)
        throw Zel::GenericException("Cannot create the wake pipe | error=" + std::to_string(errno));
}

HostApplication::~HostApplication() {
    ::close(m_wake[0]);
    ::close(m_wake[1]);
}

void HostApplication::onStopRequested() noexcept {
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(m_wake[1], &byte, 1);
}

int HostApplication::run(const Zel::Console::Arguments& arguments) {
    std::vector<Call> calls;
    for (const auto& occurrence : arguments.occurrences("call")) {
        auto call = parseTarget(occurrence[0]);
        if (!call)
            throw Zel::Console::UsageException("Invalid value for option | option=--call | value=" +
                                               occurrence[0] + " | expected=SERVICE.OPERATION");
        if (occurrence.size() > 1) call->params = occurrence[1];
        calls.push_back(std::move(*call));
    }

    Settings settings;
    std::vector<Settings::PluginModule> modules;
    try {
        settings = Settings::read(configuration(arguments));
        modules = settings.plugins;
    } catch (const Zel::Config::ConfigException& error) {
        std::cerr << "zel-host: " << error.what() << '\n';
        return exitUsage;
    }
    try {
        const std::string initExtra = arguments.string("init");
        Zel::Variant extra = initExtra.empty() ? Zel::Variant::makeMap() : Zel::Json::parse(initExtra);
        if (!extra.isMap()) throw Zel::GenericException("the init document must be a JSON object");
        for (const std::string& module : arguments.positionals())
            modules.push_back({module, extra});
    } catch (const std::exception& error) {
        std::cerr << "zel-host: bad --init document: " << error.what() << '\n';
        return exitUsage;
    }

    std::optional<Host> host;
    try {
        host.emplace(settings);
    } catch (const std::exception& error) {
        std::cerr << "zel-host: cannot start: " << error.what() << '\n';
        return exitUsage;
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
    if (failed > 0 && failed == modules.size()) return exitUsage;

    const bool serving = !settings.httpListen.empty();
    bool allGood = failed == 0;
    {
        Session session(arguments.boolean("echo"), *host);
        if (!calls.empty() || serving) {
            for (const Call& call : calls) {
                if (stopRequested()) break;
                allGood = session.run(call, false) && allGood;
            }
            session.drain();
            if (serving && !stopRequested()) allGood = serveHttp(settings, *host) && allGood;
        } else {
            InputLines input(m_wake[0]);
            std::string line;
            while (input.next(line)) {
                try {
                    std::string_view text = Zel::StringUtils::trimBlanks(line);
                    if (text.starts_with("wait ")) {
                        // A pause in a scripted session, for work the host does later (tasks).
                        session.drain();
                        waitForStop(std::chrono::milliseconds(std::stoll(std::string(text.substr(5)))));
                        continue;
                    }
                    const bool concurrently = text.starts_with("&");
                    if (concurrently) text.remove_prefix(1);
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
    return allGood ? exitSuccess : exitFailure;
}

bool HostApplication::serveHttp(const Settings& settings, Host& host) {
    const auto colon = settings.httpListen.rfind(':');
    HttpFront::Options frontOptions;
    frontOptions.address = settings.httpListen.substr(0, colon);
    frontOptions.staticFolder = settings.httpStaticFolder;
    frontOptions.bearerToken = settings.httpBearerToken;
    frontOptions.callThreads = static_cast<int>(settings.threads);
    try {
        frontOptions.port = static_cast<std::uint16_t>(std::stoi(settings.httpListen.substr(colon + 1)));
        HttpFront front([&host](const std::string& service, const std::string& operation,
                                const std::string& params) { return host.call(service, operation, params); },
                        frontOptions);
        front.start();
        std::cerr << "zel-host: serving HTTP on " << frontOptions.address << ':' << front.port() << std::endl;
        waitForStop();
        std::cerr << "zel-host: stopping (signal " << stopSignal() << ")" << std::endl;
        front.stop();
        return true;
    } catch (const std::exception& error) {
        std::cerr << "zel-host: cannot serve HTTP on " << settings.httpListen << ": " << error.what() << '\n';
        return false;
    }
}

} // namespace ZelHost
