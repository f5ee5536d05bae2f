#pragma once

#include <Zel/Export.h>
#include <Zel/UniqueFunction.h>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Zel::Log {
class ILog;
}

namespace Zel::Async::Threads {

// A pool of reusable, named worker threads. start() hands the function to an idle thread when there is
// one and creates a thread only when every thread is busy, so starting short pieces of work does not
// cost an operating-system thread each time. A thread that has just become idle watches for new work
// for some 50 microseconds (yielding its processor meanwhile) before it sleeps, so that work handed
// out in quick succession costs no wake-up; a thread that stays idle for `idleTimeout` ends.
//
// There is no upper bound on the number of threads: callers limit their own concurrency (a task
// queue starts at most its maxThreads runs at once).
//
// A function that throws does not end its thread; the exception is logged. stop() (and the
// destructor) waits for every started function to return and joins every thread; start() then
// throws. Neither may be called from one of the pool's own threads.
//
// Thread safety: every operation may be called from any thread.
class ZEL_API Manager {
public:
    static constexpr std::chrono::milliseconds defaultIdleTimeout{60000};

    explicit Manager(std::shared_ptr<Log::ILog> log = nullptr,
                     std::chrono::milliseconds idleTimeout = defaultIdleTimeout);
    ~Manager();

    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // Runs `function` on a pool thread named `name` (the operating system sees at most its first
    // 15 bytes; currentThreadName() returns all of it). Throws GenericException
    // "Thread manager is stopped" after stop().
    void start(UniqueFunction<void()> function, std::string_view name);

    // Tells when a function handed to startJoinable() is done with: it returned, it was destroyed
    // (with whatever it captured) and its thread counts as idle again. Copies share the one state.
    class ZEL_API Completion {
    public:
        Completion() = default;
        // Returns at once for a default-constructed Completion.
        void wait() const;
        bool done() const;

    private:
        friend class Manager;
        struct State;
        std::shared_ptr<State> m_state;
    };

    // As start(), for callers that must know when the pool has let go of everything the function
    // held: a "joined" function of a pool thread, without ending the thread.
    Completion startJoinable(UniqueFunction<void()> function, std::string_view name);

    void stop();

    // Threads alive now, and of those the ones running a function.
    std::size_t threadCount() const;
    std::size_t busyCount() const;
    // Threads created since construction: shows whether threads were reused.
    std::size_t createdCount() const;

    // The name given to start() for the function running on the calling thread; empty elsewhere.
    static const std::string& currentThreadName() noexcept;

private:
    struct Impl;
    void start(UniqueFunction<void()> function, std::string_view name,
               std::shared_ptr<Completion::State> completion);
    std::unique_ptr<Impl> m_impl;
};

} // namespace Zel::Async::Threads
