#include <Zel/Async/Threads/Manager.h>
#include <Zel/GenericException.h>
#include <Zel/Log/ILog.h>
#include <Zel/Log/Macros.h>
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <list>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <pthread.h>
#endif

namespace Zel::Async::Threads {

namespace {

thread_local std::string currentName;
thread_local const void* currentPool = nullptr;

// The operating system keeps a short name per thread that debuggers and `top -H` show.
void setSystemThreadName(const std::string& name) {
#ifdef _WIN32
    std::wstring wide(name.begin(), name.end());
    ::SetThreadDescription(::GetCurrentThread(), wide.c_str());
#else
    char shortName[16] = {};
    name.copy(shortName, sizeof shortName - 1);
    ::pthread_setname_np(::pthread_self(), shortName);
#endif
}

} // namespace

struct Manager::Completion::State {
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;

    void set() {
        {
            std::lock_guard lock(mutex);
            done = true;
        }
        changed.notify_all();
    }
};

void Manager::Completion::wait() const {
    if (!m_state) return;
    std::unique_lock lock(m_state->mutex);
    m_state->changed.wait(lock, [this] { return m_state->done; });
}

bool Manager::Completion::done() const {
    if (!m_state) return true;
    std::lock_guard lock(m_state->mutex);
    return m_state->done;
}

struct Manager::Impl {
    struct Worker {
        std::thread thread;
        std::condition_variable wake;
        UniqueFunction<void()> job;                    // set by start() while the worker is idle
        std::shared_ptr<Completion::State> completion; // set with the job by startJoinable()
        std::string name;
        // Set with the job, so that a worker still spinning sees it without the lock.
        std::atomic<bool> assigned{false};
        bool parked = false; // waiting on `wake`; start() must notify
    };

    // An idle worker first watches for new work this long before it sleeps: work handed out in quick
    // succession then costs no wake-up.
    static constexpr std::chrono::microseconds spinTime{50};

    std::shared_ptr<Log::ILog> log;
    std::chrono::milliseconds idleTimeout;

    mutable std::mutex mutex;
    std::list<std::unique_ptr<Worker>> workers; // every thread alive
    std::vector<Worker*> idle;                  // the most recently idle last: its caches are warm
    std::vector<std::unique_ptr<Worker>> ended; // threads that timed out, to be joined
    std::size_t busy = 0;
    std::size_t created = 0;
    bool stopping = false;
    std::atomic<bool> stoppingFlag{false}; // `stopping`, for spinning workers

    void loop(Worker* worker);
    void runJob(Worker& worker);
    // Under the lock: the job is over and destroyed; the thread becomes idle.
    void jobDone(Worker& worker);
    std::vector<std::unique_ptr<Worker>> takeEnded();
};

void Manager::Impl::runJob(Worker& worker) {
    if (currentName != worker.name) {
        currentName = worker.name;
        setSystemThreadName(currentName);
    }
    try {
        worker.job();
    } catch (const std::exception& exception) {
        ZEL_LOG_ERROR(log, "Thread function threw an std::exception | thread=" + worker.name +
                               " | message=" + exception.what());
    } catch (...) {
        ZEL_LOG_ERROR(log, "Thread function threw an unknown exception | thread=" + worker.name);
    }
    // Whatever the function owned goes now, not when the thread is next used.
    worker.job = nullptr;
}

void Manager::Impl::jobDone(Worker& worker) {
    --busy;
    // Only now: a caller joining the function may check busyCount() right after.
    if (auto completion = std::move(worker.completion)) completion->set();
}

void Manager::Impl::loop(Worker* worker) {
    currentPool = this;
    std::unique_lock lock(mutex);
    for (;;) {
        lock.unlock();
        runJob(*worker);
        lock.lock();
        jobDone(*worker);
        if (stopping) return;
        idle.push_back(worker);
        lock.unlock();
        const auto spinUntil = std::chrono::steady_clock::now() + spinTime;
        while (!worker->assigned.load(std::memory_order_acquire) &&
               !stoppingFlag.load(std::memory_order_relaxed) &&
               std::chrono::steady_clock::now() < spinUntil) {
            std::this_thread::yield();
        }
        lock.lock();
        if (!worker->assigned.load(std::memory_order_relaxed)) {
            worker->parked = true;
            worker->wake.wait_for(lock, idleTimeout, [&] { return worker->assigned.load() || stopping; });
            worker->parked = false;
        }
        if (worker->assigned.load(std::memory_order_relaxed)) {
            worker->assigned.store(false, std::memory_order_relaxed);
            continue; // start() took it off the idle list
        }
        if (stopping) return; // stop() joins every thread it finds in `workers`
        idle.erase(std::find(idle.begin(), idle.end(), worker));
        for (auto it = workers.begin(); it != workers.end(); ++it) {
            if (it->get() == worker) {
                ended.push_back(std::move(*it));
                workers.erase(it);
                break;
            }
        }
        return; // joined by the next start() or stop()
    }
}

std::vector<std::unique_ptr<Manager::Impl::Worker>> Manager::Impl::takeEnded() {
    return std::exchange(ended, {});
}

Manager::Manager(std::shared_ptr<Log::ILog> log, std::chrono::milliseconds idleTimeout)
    : m_impl(std::make_unique<Impl>()) {
    m_impl->log = std::move(log);
    m_impl->idleTimeout = idleTimeout;
}

Manager::~Manager() {
    stop();
}

void Manager::start(UniqueFunction<void()> function, std::string_view name) {
    start(std::move(function), name, nullptr);
}

Manager::Completion Manager::startJoinable(UniqueFunction<void()> function, std::string_view name) {
    Completion completion;
    completion.m_state = std::make_shared<Completion::State>();
    start(std::move(function), name, completion.m_state);
    return completion;
}

void Manager::start(UniqueFunction<void()> function, std::string_view name,
                    std::shared_ptr<Completion::State> completion) {
    Impl& impl = *m_impl;
    std::vector<std::unique_ptr<Impl::Worker>> ended;
    {
        std::unique_lock lock(impl.mutex);
        if (impl.stopping) throw GenericException("Thread manager is stopped");
        ended = impl.takeEnded();
        ++impl.busy;
        if (!impl.idle.empty()) {
            Impl::Worker* worker = impl.idle.back();
            impl.idle.pop_back();
            worker->job = std::move(function);
            worker->completion = std::move(completion);
            if (worker->name != name) worker->name.assign(name);
            worker->assigned.store(true, std::memory_order_release);
            const bool parked = worker->parked;
            lock.unlock();
            if (parked) worker->wake.notify_one();
        } else {
            auto worker = std::make_unique<Impl::Worker>();
            worker->job = std::move(function);
            worker->completion = std::move(completion);
            worker->name.assign(name);
            Impl::Worker* raw = worker.get();
            try {
                worker->thread = std::thread([&impl, raw] { impl.loop(raw); });
            } catch (...) {
                --impl.busy;
                throw;
            }
            impl.workers.push_back(std::move(worker));
            ++impl.created;
        }
    }
    for (auto& worker : ended)
        worker->thread.join();
}

void Manager::stop() {
    Impl& impl = *m_impl;
    if (currentPool == &impl) {
        throw GenericException("Thread manager cannot be stopped from one of its own threads");
    }
    std::list<std::unique_ptr<Impl::Worker>> workers;
    std::vector<std::unique_ptr<Impl::Worker>> ended;
    {
        std::lock_guard lock(impl.mutex);
        impl.stopping = true;
        impl.stoppingFlag.store(true, std::memory_order_relaxed);
        for (Impl::Worker* worker : impl.idle)
            worker->wake.notify_one();
        impl.idle.clear();
        workers = std::move(impl.workers);
        ended = impl.takeEnded();
    }
    for (auto& worker : workers)
        worker->thread.join();
    for (auto& worker : ended)
        worker->thread.join();
}

std::size_t Manager::threadCount() const {
    std::lock_guard lock(m_impl->mutex);
    return m_impl->workers.size();
}

std::size_t Manager::busyCount() const {
    std::lock_guard lock(m_impl->mutex);
    return m_impl->busy;
}

std::size_t Manager::createdCount() const {
    std::lock_guard lock(m_impl->mutex);
    return m_impl->created;
}

const std::string& Manager::currentThreadName() noexcept {
    return currentName;
}

} // namespace Zel::Async::Threads
