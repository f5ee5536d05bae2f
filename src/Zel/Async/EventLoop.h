#pragma once

#include <Zel/Export.h>
#include <Zel/UniqueFunction.h>

#include <chrono>
#include <memory>

namespace Zel::Log {
class ILog;
}

namespace Zel::Async {

// A loop of calls executed one at a time by the thread that runs it: calls posted with call(function)
// run in the order they were posted, delayed calls when their steady-clock delay has passed.
//
// run() blocks until stopAsync(); the loop does not end just because it has nothing to do. Having run
// out of calls, it watches for new ones for some 50 microseconds (yielding its processor meanwhile)
// before it sleeps, so that a steady stream of calls from other threads costs no wake-ups. Calls that
// are still pending when the loop is destroyed are destroyed without being run. A call that throws
// does not end the loop: the exception is logged through the log given to the constructor (if any)
// and the loop goes on.
//
// Thread safety: call() and stopAsync() may be used from any thread, including from inside a call.
// run() is meant for one thread at a time. Once stopped, a loop stays stopped: run() returns at once.
class ZEL_API EventLoop {
public:
    explicit EventLoop(std::shared_ptr<Log::ILog> log = nullptr);
    ~EventLoop();

    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    void call(UniqueFunction<void()> function);
    // A delay of zero or less behaves as call(function).
    void call(UniqueFunction<void()> function, std::chrono::milliseconds delay);

    void run();
    void stopAsync();

    bool stopped() const;
    // True on the thread that is inside run() (and so inside one of the loop's calls).
    bool runningInThisThread() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace Zel::Async
