#pragma once

// What the benchmark's peer servers share: the answers, the arguments, the wait for the end.

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

namespace Bench {

inline constexpr std::string_view plaintext = "Hello, World!";
inline constexpr std::string_view json = R"({"message":"Hello, World!"})";

inline std::pair<std::uint16_t, int> parseArguments(int argc, char** argv) {
    const auto port = static_cast<std::uint16_t>(argc > 1 ? std::atoi(argv[1]) : 8080);
    const int threads = argc > 2 ? std::atoi(argv[2]) : 2;
    return {port, threads};
}

inline void waitForSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    int received = 0;
    sigwait(&signals, &received);
}

// Blocks SIGINT and SIGTERM in every thread started after it, so that waitForSignal takes them.
struct SignalBlocker {
    SignalBlocker() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }
};
inline const SignalBlocker signalBlocker;

} // namespace Bench
