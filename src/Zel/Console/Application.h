#pragma once

#include <Zel/Console/Arguments.h>
#include <Zel/Console/CommandLine.h>
#include <Zel/Export.h>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <iosfwd>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

namespace Zel::Console {

// Base of a console program: declares its command line, parses it, runs, and stops gracefully.
//
//     class Tool : public Zel::Console::Application {
//     public:
//         Tool() : Application("tool", "Does things") { commandLine().option("port", ValueType::Integer,
//         "Port"); } int run(const Arguments& args) override { startServer(args.integer("port"));
//         waitForStop(); return 0; }
//     };
//     int main(int argc, char** argv) { return Tool().main(argc, argv); }
//
// main() parses the command line, prints the help for "--help" (exit 0), and calls run() with
// SIGINT and SIGTERM taken over: they are blocked in the calling thread, and so in every thread
// run() starts, and a watcher thread reads them from a signalfd and turns them into requestStop(),
// which wakes waitForStop() and the stop token. No handler of a library loaded later sees them.
// Threads older than run() find a handler that only writes a byte to the watcher's pipe. The
// previous handlers and signal mask come back when run() returns. Only one Application
// at a time can hold the handlers; a second running main() meanwhile gets the InvalidOperation
// error. A stop request is final: the object does not run again after one.
//
// Exit codes: what run() returns; 2 (exitUsage) when the command line is wrong (UsageException,
// message and a hint to --help on stderr); 1 (exitFailure) for any other exception escaping run(),
// its message on stderr as "Error: ...".
class ZEL_API Application {
public:
    static constexpr int exitSuccess = 0;
    static constexpr int exitFailure = 1;
    static constexpr int exitUsage = 2;

    Application(std::string name, std::string description);
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    virtual ~Application();

    int main(int argc, const char* const* argv);
    // Without the program name; writes to the given streams instead of stdout/stderr.
    int main(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

    CommandLine& commandLine() noexcept { return m_commandLine; }

    // Thread-safe; also what SIGINT and SIGTERM do. Idempotent.
    void requestStop() noexcept;
    bool stopRequested() const noexcept;
    void waitForStop() const;
    // False when the timeout passed without a stop request.
    bool waitForStop(std::chrono::milliseconds timeout) const;
    std::stop_token stopToken() const noexcept { return m_stopSource.get_token(); }
    // The signal that stopped the application, or 0.
    int stopSignal() const noexcept;

protected:
    virtual int run(const Arguments& arguments) = 0;
    // Called once on the thread that asks to stop (the watcher thread for a signal), before the
    // waiters wake. Must not throw.
    virtual void onStopRequested() noexcept {}

private:
    void stop(int signal) noexcept;

    CommandLine m_commandLine;
    std::stop_source m_stopSource;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_stopped;
    std::atomic<bool> m_stopping{false};
    bool m_stopRequested = false;
    int m_stopSignal = 0;
};

} // namespace Zel::Console
