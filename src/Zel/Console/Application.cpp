#include <Zel/Console/Application.h>
#include <Zel/Console/UsageException.h>
#include <Zel/InvalidOperationException.h>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <sys/signalfd.h>
#include <thread>
#include <unistd.h>

namespace Zel::Console {

namespace {

// The write end of the self-pipe; -1 while no Application runs. Read by the signal handler, so a
// lock-free atomic int.
std::atomic<int> g_signalPipe{-1};
std::atomic<bool> g_installed{false};

extern "C" void onSignal(int signal) {
    const int savedErrno = errno;
    const int fd = g_signalPipe.load();
    if (fd >= 0) {
        const unsigned char byte = static_cast<unsigned char>(signal);
        [[maybe_unused]] const auto written = ::write(fd, &byte, 1);
    }
    errno = savedErrno;
}

// Installs the handlers and the watcher thread for the lifetime of one run().
//
// The signals are also blocked in the calling thread, so every thread run() starts inherits the
// block, and the watcher takes them through a signalfd. A library that installs handlers of its own
// later (a database engine starting its shutdown on SIGINT, say) then never sees them, and
// nothing runs in a handler but for threads older than run(), which find the self-pipe handler.
class SignalGuard {
public:
    template <typename OnSignal>
    explicit SignalGuard(OnSignal onSignalReceived) {
        bool expected = false;
        if (!g_installed.compare_exchange_strong(expected, true)) ZEL_THROW_INVALID_OPERATION();
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        if (::pipe2(m_pipe, O_CLOEXEC) != 0) {
            g_installed = false;
            throw GenericException("Cannot create the signal pipe | error=" + std::to_string(errno));
        }
        m_signalFd = ::signalfd(-1, &signals, SFD_CLOEXEC);
        if (m_signalFd < 0) {
            const int error = errno;
            ::close(m_pipe[0]);
            ::close(m_pipe[1]);
            g_installed = false;
            throw GenericException("Cannot create the signal descriptor | error=" + std::to_string(error));
        }
        pthread_sigmask(SIG_BLOCK, &signals, &m_oldMask);
        try {
            m_watcher = std::thread([this, onSignalReceived] {
                pollfd watched[] = {{m_pipe[0], POLLIN, 0}, {m_signalFd, POLLIN, 0}};
                for (;;) {
                    if (::poll(watched, 2, -1) < 0) {
                        if (errno == EINTR) continue;
                        return;
                    }
                    if (watched[1].revents & POLLIN) {
                        signalfd_siginfo info{};
                        if (::read(m_signalFd, &info, sizeof info) == sizeof info)
                            onSignalReceived(static_cast<int>(info.ssi_signo));
                    }
                    if (watched[0].revents & POLLIN) {
                        unsigned char byte = 0;
                        const auto got = ::read(m_pipe[0], &byte, 1);
                        if (got <= 0 || byte == 0) return; // 0 is our own shutdown byte
                        onSignalReceived(static_cast<int>(byte));
                    }
                }
            });
        } catch (...) {
            pthread_sigmask(SIG_SETMASK, &m_oldMask, nullptr);
            ::close(m_signalFd);
            ::close(m_pipe[0]);
            ::close(m_pipe[1]);
            g_installed = false;
            throw;
        }
        g_signalPipe = m_pipe[1];
        struct sigaction action {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(SIGINT, &action, &m_oldInt);
        ::sigaction(SIGTERM, &action, &m_oldTerm);
    }

    ~SignalGuard() {
        ::sigaction(SIGINT, &m_oldInt, nullptr);
        ::sigaction(SIGTERM, &m_oldTerm, nullptr);
        g_signalPipe = -1;
        const unsigned char stop = 0;
        [[maybe_unused]] const auto written = ::write(m_pipe[1], &stop, 1);
        m_watcher.join();
        // A signal raised on this very thread stays pending for it alone, out of the signalfd's
        // reach; run() is over, so it is dropped rather than let through to the old disposition.
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        const timespec now{};
        while (::sigtimedwait(&signals, nullptr, &now) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &m_oldMask, nullptr);
        ::close(m_signalFd);
        ::close(m_pipe[0]);
        ::close(m_pipe[1]);
        g_installed = false;
    }

    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

private:
    int m_pipe[2] = {-1, -1};
    int m_signalFd = -1;
    sigset_t m_oldMask{};
    std::thread m_watcher;
    struct sigaction m_oldInt {};
    struct sigaction m_oldTerm {};
};

} // namespace

Application::Application(std::string name, std::string description)
    : m_commandLine(std::move(name), std::move(description)) {}

Application::~Application() = default;

int Application::main(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i)
        arguments.emplace_back(argv[i]);
    return main(arguments, std::cout, std::cerr);
}

int Application::main(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    try {
        const Arguments parsed = m_commandLine.parse(arguments);
        if (parsed.helpRequested()) {
            out << parsed.helpText();
            return exitSuccess;
        }
        SignalGuard signals([this](int signal) { stop(signal); });
        return run(parsed);
    } catch (const UsageException& error) {
        err << m_commandLine.program() << ": " << error.what() << "\n"
            << "Try '" << m_commandLine.program() << " --help' for more information.\n";
        return exitUsage;
    } catch (const std::exception& error) {
        err << m_commandLine.program() << ": Error: " << error.what() << "\n";
        return exitFailure;
    } catch (...) {
        err << m_commandLine.program() << ": Error: unknown exception\n";
        return exitFailure;
    }
}

void Application::requestStop() noexcept {
    stop(0);
}

void Application::stop(int signal) noexcept {
    if (m_stopping.exchange(true)) return;
    onStopRequested();
    m_stopSource.request_stop();
    // Notify under the lock: a woken waiter may destroy the application as soon as it returns.
    std::lock_guard lock(m_mutex);
    m_stopRequested = true;
    m_stopSignal = signal;
    m_stopped.notify_all();
}

bool Application::stopRequested() const noexcept {
    return m_stopping.load();
}

void Application::waitForStop() const {
    std::unique_lock lock(m_mutex);
    m_stopped.wait(lock, [this] { return m_stopRequested; });
}

bool Application::waitForStop(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(m_mutex);
    return m_stopped.wait_for(lock, timeout, [this] { return m_stopRequested; });
}

int Application::stopSignal() const noexcept {
    std::lock_guard lock(m_mutex);
    return m_stopSignal;
}

} // namespace Zel::Console
