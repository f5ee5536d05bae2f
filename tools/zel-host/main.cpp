// zel-host: the reference host. Loads a plug-in module, initialises it, runs calls and
// de-initialises it; every reply is printed as one JSON line on standard output, everything else
// (the plug-in's log, messages, errors) goes to standard error.

#include "Host.h"
#include "PluginLibrary.h"

#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <cstring>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr const char* usage =
    R"(usage: zel-host MODULE [--init JSON] [--echo] [--call SERVICE.OPERATION [JSON]]...

Loads the plug-in module MODULE, initialises it and prints its init reply, runs the calls and
de-initialises it. Without --call, calls are read from standard input, one per line:
    SERVICE.OPERATION [JSON]
(empty lines and lines starting with # are skipped). Each reply is printed as one line of JSON.

  --init JSON   extra members for the init document (a JSON object)
  --echo        print each call on standard error before its reply
  --call S.O J  call operation O of service S with params J (default {}); repeatable

Exit status: 0 when every call was made, 1 when input was bad (malformed call or JSON, unknown
service) or init failed, 2 when the module could not be loaded or the command line is wrong.
)";

struct Call {
    std::string service;
    std::string operation;
    std::string params;
};

struct Options {
    std::string module;
    std::string initExtra;
    bool echo = false;
    std::vector<Call> calls;
    bool interactive = true;
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
        } else if (options.module.empty()) {
            options.module = argument;
        } else {
            throw UsageError("unexpected argument " + argument);
        }
    }
    if (options.module.empty()) throw UsageError("no plug-in module given");
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
    Session(const Options& options, const ZelHost::PluginLibrary& plugin, std::set<std::string> services)
        : m_options(options), m_plugin(plugin), m_services(std::move(services)) {}

    // False when the call was refused as bad input.
    bool run(const Call& call) {
        if (m_options.echo)
            std::cerr << "> " << call.service << '.' << call.operation << ' ' << call.params << '\n';
        if (!m_services.contains(call.service)) {
            std::string known;
            for (const auto& name : m_services)
                known += (known.empty() ? "" : ", ") + name;
            std::cerr << "zel-host: unknown service '" << call.service << "' (the plug-in has: " << known
                      << ")\n";
            return false;
        }
        try {
            Zel::Json::parse(call.params);
        } catch (const Zel::GenericException& error) {
            std::cerr << "zel-host: malformed JSON params for " << call.service << '.' << call.operation
                      << ": " << error.what() << '\n';
            return false;
        }
        std::cout << m_plugin.call(call.service, call.operation, call.params) << std::endl;
        return true;
    }

private:
    const Options& m_options;
    const ZelHost::PluginLibrary& m_plugin;
    std::set<std::string> m_services;
};

std::set<std::string> servicesOf(const Zel::Variant& initReply) {
    std::set<std::string> services;
    const Zel::Variant& list = initReply["data"]["services"];
    for (const auto& entry : list)
        services.insert(static_cast<std::string>(entry.value()["reference"]));
    return services;
}

int run(const Options& options) {
    ZelHost::Host host;
    std::optional<ZelHost::PluginLibrary> plugin;
    try {
        plugin.emplace(options.module);
    } catch (const std::exception& error) {
        std::cerr << "zel-host: " << error.what() << '\n';
        return 2;
    }
    host.attach(&*plugin);

    std::string document;
    try {
        document = host.initDocument(options.initExtra);
    } catch (const std::exception& error) {
        std::cerr << "zel-host: bad --init document: " << error.what() << '\n';
        return 2;
    }
    const std::string initReply = plugin->init(document);
    std::cout << initReply << std::endl;

    std::set<std::string> services;
    try {
        const Zel::Variant reply = Zel::Json::parse(initReply);
        if (static_cast<std::int64_t>(reply["result"]) != 0)
            throw std::runtime_error("the plug-in refused init");
        services = servicesOf(reply);
        host.registerServices(reply);
    } catch (const std::exception& error) {
        std::cerr << "zel-host: init failed: " << error.what() << '\n';
        return 1;
    }

    Session session(options, *plugin, std::move(services));
    bool allGood = true;
    if (!options.interactive) {
        for (const Call& call : options.calls)
            allGood = session.run(call) && allGood;
    } else {
        std::string line;
        while (std::getline(std::cin, line)) {
            try {
                if (const auto call = parseLine(line)) allGood = session.run(*call) && allGood;
            } catch (const std::exception& error) {
                std::cerr << "zel-host: " << error.what() << '\n';
                allGood = false;
            }
        }
    }

    std::cout << plugin->deinit() << std::endl;
    host.attach(nullptr);
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
