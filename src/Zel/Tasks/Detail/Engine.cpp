#include <Zel/ArgumentException.h>
#include <Zel/Async/EventLoop.h>
#include <Zel/GenericException.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Log/ILog.h>
#include <Zel/Log/Macros.h>
#include <Zel/Log/ThreadContext.h>
#include <Zel/Tasks/Detail/Engine.h>
#include <Zel/Tasks/Queue.h>
#include <algorithm>
#include <utility>

namespace Zel::Tasks::Detail {

namespace {

// The engine whose worker the calling thread is, if any.
thread_local const Engine* workerOf = nullptr;

// An idle worker beyond the base count leaves after this long without work.
constexpr std::chrono::seconds extraWorkerIdle{2};

// A worker that ran out of offers watches for new ones this long before it parks: work handed out
// in quick succession then costs no wake-up, a system call and a context switch per run.
constexpr std::chrono::microseconds spinBeforeParking{50};

} // namespace

Engine::Engine(std::shared_ptr<Async::Threads::Manager> threads, std::shared_ptr<Log::ILog> log,
               std::shared_ptr<Events::Manager> events)
    : m_threads(std::move(threads)), m_log(std::move(log)), m_events(std::move(events)) {
    if (!m_threads) m_threads = std::make_shared<Async::Threads::Manager>(m_log);
}

Engine::~Engine() = default;

void Engine::setState(State state) {
    m_state.store(state, std::memory_order_release);
    m_stateChanged.notify_all();
}

// --- life cycle ---------------------------------------------------------------------------------

void Engine::start(Guard& guard) {
    if (state() != State::Stopped) throw GenericException("Tasks are already running");
    setState(State::Starting);
    try {
        // The thread keeps the engine alive until it has let go of everything.
        m_engineDone =
            m_threads->startJoinable([self = shared_from_this()] { self->engineMain(); }, engineThreadName());
    } catch (...) {
        setState(State::Stopped);
        throw;
    }
    m_stateChanged.wait(guard, [this] { return state() != State::Starting; });
}

void Engine::engineMain() {
    Log::ThreadContext context(0, "Tasks");
    Guard guard(m_mutex);
    if (state() == State::Stopping) {
        // Stopped while starting: there is nothing to undo.
        setState(State::Stopped);
        return;
    }
    m_loop = std::make_unique<Async::EventLoop>(m_log);
    m_engineThread = std::this_thread::get_id();
    m_workersLeave = false;
    m_executed = 0;
    if (m_clock) {
        m_clock->setJumpListener([weak = weak_from_this()] {
            if (auto self = weak.lock()) {
                Guard listenerGuard(self->m_mutex);
                if (self->m_loop) self->m_loop->call([self] { self->runDueTimers(); });
            }
        });
    }
    const int base =
        m_baseWorkers > 0 ? m_baseWorkers : static_cast<int>(std::thread::hardware_concurrency());
    for (int i = 0; i < std::max(base, 1); ++i)
        startWorker(guard);
    callAt(guard, now() + m_sweepInterval, [this] { sweep(); });
    setState(State::Running);
    guard.unlock();
    m_loop->run();
    guard.lock();
    shutDown(guard);
}

void Engine::shutDown(Guard& guard) {
    if (m_clock) m_clock->setJumpListener(nullptr);
    // Every queue is gone, so no worker holds a run any more; they only have to leave.
    m_workersLeave = true;
    for (ParkedWorker* parked : m_parked) {
        parked->woken = true;
        parked->wake.notify_one();
    }
    m_parked.clear();
    const std::vector<Async::Threads::Manager::Completion> workersDone = std::exchange(m_workersDone, {});
    guard.unlock();
    for (const auto& done : workersDone)
        done.wait();
    guard.lock();

    std::unique_ptr<Async::EventLoop> loop = std::move(m_loop);
    m_engineThread = {};
    Garbage garbage;
    auto queues = std::exchange(m_queues, {});
    for (auto& [name, queue] : queues)
        queue->abandon(guard, garbage);
    auto tasks = m_tasks.takeAll();
    auto timers = std::exchange(m_timers, {});
    auto offers = std::exchange(m_offers, {});
    for (const QueuePtr& queue : m_watched)
        queue->m_watchListed.store(false, std::memory_order_relaxed);
    auto watched = std::exchange(m_watched, {});
    m_timerArmedFor = TimePoint::max();
    m_stallWatched = false;
    guard.unlock();
    // Pending calls and timers hold queues and runs; all of it may end in user destructors.
    loop.reset();
    timers.clear();
    offers.clear();
    watched.clear();
    garbage.clear();
    queues.clear();
    tasks.clear();
    guard.lock();
    setState(State::Stopped);
}

void Engine::stopAsync(Guard& guard) {
    if (state() == State::Starting) {
        setState(State::Stopping);
        return;
    }
    if (state() != State::Running) return;
    setState(State::Stopping);
    const std::vector<QueuePtr> all = queues(guard);
    guard.unlock();
    for (const auto& queue : all)
        queue->removeAsync();
    guard.lock();
    // The last queue to drain stops the loop (see forgetQueue).
    if (state() == State::Stopping && m_queues.empty() && m_loop) m_loop->stopAsync();
}

void Engine::waitStopped(Guard& guard) {
    m_stateChanged.wait(guard, [this] { return state() == State::Stopped; });
    const Async::Threads::Manager::Completion engineDone = m_engineDone;
    guard.unlock();
    engineDone.wait();
    guard.lock();
}

bool Engine::onEngineThread() const noexcept {
    return m_loop && m_engineThread == std::this_thread::get_id();
}

bool Engine::onWorker() const noexcept {
    return workerOf == this;
}

// --- configuration ------------------------------------------------------------------------------

void Engine::setHousekeeping(Guard&, std::chrono::milliseconds interval, std::chrono::milliseconds keep) {
    m_sweepInterval = std::max(interval, std::chrono::milliseconds(1));
    m_keepFinished = keep;
}

void Engine::setWorkerPool(Guard&, int base, std::chrono::milliseconds growAfter) {
    if (base < 0)
        throw ArgumentException("Task workers cannot be fewer than none | workers=" + std::to_string(base));
    m_baseWorkers = base;
    m_growAfter = std::max(growAfter, std::chrono::milliseconds(1));
}

void Engine::setClock(Guard&, std::shared_ptr<IClock> clock) {
    if (state() != State::Stopped) ZEL_THROW_INVALID_OPERATION();
    m_clock = std::move(clock);
}

// --- time ---------------------------------------------------------------------------------------

void Engine::callAt(Guard& guard, TimePoint at, UniqueFunction<void()> function) {
    if (!m_loop) return;
    m_timers.emplace(at, std::move(function));
    if (at < m_timerArmedFor) armTimer(guard);
}

void Engine::post(Guard&, UniqueFunction<void()> function) {
    if (m_loop) m_loop->call(std::move(function));
}

void Engine::armTimer(Guard&) {
    if (m_timers.empty() || !m_loop) {
        m_timerArmedFor = TimePoint::max();
        return;
    }
    const TimePoint first = m_timers.begin()->first;
    m_timerArmedFor = first;
    // Rounded up: a timer that fires early would find nothing due and arm itself again at once.
    const auto delay = std::chrono::ceil<std::chrono::milliseconds>(first - now());
    m_loop->call([this] { runDueTimers(); }, delay);
}

void Engine::runDueTimers() {
    std::vector<UniqueFunction<void()>> due;
    {
        Guard guard(m_mutex);
        const TimePoint current = now();
        auto end = m_timers.upper_bound(current);
        for (auto it = m_timers.begin(); it != end; ++it)
            due.push_back(std::move(it->second));
        m_timers.erase(m_timers.begin(), end);
        // Armed again only when the first timer changed: an older call of this function is still
        // pending for it otherwise.
        if (m_timers.empty()) {
            m_timerArmedFor = TimePoint::max();
        } else if (m_timers.begin()->first != m_timerArmedFor || m_timerArmedFor <= current) {
            armTimer(guard);
        }
    }
    for (auto& function : due)
        function();
}

void Engine::sweep() {
    Garbage garbage;
    {
        Guard guard(m_mutex);
        const TimePoint current = now();
        const TimePoint finishedBefore = current - m_keepFinished;
        for (auto& [name, queue] : m_queues)
            queue->sweep(guard, finishedBefore, garbage);
        callAt(guard, current + m_sweepInterval, [this] { sweep(); });
    }
}

// --- queues -------------------------------------------------------------------------------------

Engine::QueuePtr Engine::addQueue(Guard&, Manager& manager, const std::string& name, int maxThreads) {
    if (state() != State::Running) throw GenericException("Tasks are not running");
    if (m_queues.contains(name)) throw GenericException("Task queue already exists | name=" + name);
    if (maxThreads < 1) {
        throw ArgumentException("Task queue needs at least one thread | name=" + name +
                                " | maxThreads=" + std::to_string(maxThreads));
    }
    auto queue = std::make_shared<Queue>(Queue::Key(), manager, *this, name, maxThreads);
    m_queues.emplace(name, queue);
    return queue;
}

Engine::QueuePtr Engine::findQueue(Guard&, const std::string& name) const {
    auto found = m_queues.find(name);
    return found == m_queues.end() ? nullptr : found->second;
}

std::vector<Engine::QueuePtr> Engine::queues(Guard&) const {
    std::vector<QueuePtr> result;
    result.reserve(m_queues.size());
    for (const auto& [name, queue] : m_queues)
        result.push_back(queue);
    return result;
}

void Engine::forgetQueue(Guard&, const Queue& queue) {
    if (queue.m_watchListed.load(std::memory_order_relaxed)) {
        std::erase_if(m_watched, [&](const QueuePtr& watched) { return watched.get() == &queue; });
        queue.m_watchListed.store(false, std::memory_order_relaxed);
    }
    if (auto found = m_queues.find(queue.name()); found != m_queues.end() && found->second.get() == &queue) {
        m_queues.erase(found);
    }
    if (state() == State::Stopping && m_queues.empty() && m_loop) m_loop->stopAsync();
}

int Engine::threadLimit(Guard&) const noexcept {
    long limit = 0;
    for (const auto& [name, queue] : m_queues)
        limit += queue->maxThreads();
    return static_cast<int>(std::min<long>(limit, 1024));
}

// --- workers ------------------------------------------------------------------------------------

void Engine::startWorker(Guard&) {
    // Extra workers that left are done with: only the live ones need joining at shutdown.
    std::erase_if(m_workersDone, [](const Async::Threads::Manager::Completion& done) { return done.done(); });
    try {
        m_workersDone.push_back(m_threads->startJoinable([self = shared_from_this()] { self->workerMain(); },
                                                         workerThreadName()));
        ++m_workers;
    } catch (const std::exception& exception) {
        ZEL_LOG_ERROR(m_log, std::string("Task worker could not be started | message=") + exception.what());
    }
}

void Engine::handToWorker(Guard& guard, QueuePtr queue) {
    m_offers.push_back(std::move(queue));
    m_offerCount.store(m_offers.size(), std::memory_order_release);
    if (m_offers.size() <= static_cast<std::size_t>(m_spinning)) return; // a watching worker takes it
    if (!m_parked.empty()) {
        wakeOne(guard);
    } else {
        watchForStall(guard);
    }
}

bool Engine::takeBackOffer(Guard&, const Queue& queue) {
    if (m_offers.size() != 1 || m_offers.front().get() != &queue) return false;
    m_offers.pop_front();
    m_offerCount.store(0, std::memory_order_release);
    return true;
}

bool Engine::watch(Guard&, Queue& queue, bool byCaller) {
    if (m_spinning == 0 && !(byCaller && onWorker())) return false;
    if (!queue.m_watchListed.load(std::memory_order_relaxed)) {
        queue.m_watchListed.store(true, std::memory_order_relaxed);
        m_watched.push_back(queue.shared_from_this());
    }
    return true;
}

void Engine::admitIntakes(Guard& guard) {
    for (const auto& [name, queue] : m_queues)
        queue->offerToWorkers(guard);
}

void Engine::lookAtWatched(Guard& guard) {
    for (std::size_t i = 0; i < m_watched.size();) {
        if (m_watched[i]->m_intake.load(std::memory_order_acquire) == nullptr) {
            ++i;
            continue;
        }
        QueuePtr queue = std::move(m_watched[i]);
        m_watched[i] = std::move(m_watched.back());
        m_watched.pop_back();
        queue->m_watchListed.store(false, std::memory_order_relaxed);
        // Listed again when what arrived is not to start yet; with an empty intake then.
        queue->offerToWorkers(guard, Queue::Watch::ByCaller);
    }
}

void Engine::releaseWatched(Guard& guard) {
    std::vector<QueuePtr> watched = std::exchange(m_watched, {});
    for (const QueuePtr& queue : watched) {
        queue->m_watchListed.store(false, std::memory_order_relaxed);
        queue->keepWatch(guard, Queue::Watch::IfSpinning);
    }
}

void Engine::wakeOne(Guard&) {
    ParkedWorker* parked = m_parked.back();
    m_parked.pop_back();
    parked->woken = true;
    parked->wake.notify_one();
}

void Engine::watchForStall(Guard&) {
    if (m_stallWatched || !m_loop || m_workersLeave) return;
    m_stallWatched = true;
    // Real time, whatever the clock: it is the workers that may be stuck, not the schedule.
    m_loop->call([this, executed = m_executed] { checkStall(executed); }, m_growAfter);
}

void Engine::checkStall(std::uint64_t executedBefore) {
    Guard guard(m_mutex);
    m_stallWatched = false;
    if (m_offers.empty() || !m_parked.empty() || m_workersLeave) return;
    if (m_executed == executedBefore && m_workers < threadLimit(guard)) startWorker(guard);
    watchForStall(guard);
}

void Engine::workerMain() {
    workerOf = this;
    const bool extra = [this] {
        Guard guard(m_mutex);
        const int base =
            m_baseWorkers > 0 ? m_baseWorkers : static_cast<int>(std::thread::hardware_concurrency());
        return m_workers > std::max(base, 1);
    }();
    Garbage garbage;
    Guard guard(m_mutex);
    while (QueuePtr queue = takeOffer(guard, extra, garbage)) {
        // Dropping the queue here is safe even when it was removed meanwhile: its removal handed
        // everything a user may own to garbage already.
        queue->runNext(guard, garbage);
    }
    --m_workers;
    guard.unlock();
    garbage.clear();
    workerOf = nullptr;
}

Engine::QueuePtr Engine::takeOffer(Guard& guard, bool extra, Garbage& garbage) {
    bool spun = false;
    for (;;) {
        if (m_workersLeave) break;
        if (!m_offers.empty()) {
            QueuePtr queue = std::move(m_offers.front());
            m_offers.pop_front();
            m_offerCount.store(m_offers.size(), std::memory_order_release);
            // This worker goes to run user code: unless another one spins, nobody watches any more.
            if (m_spinning == 0) releaseWatched(guard);
            return queue;
        }
        // Read before the look: an add after the look changes it.
        const std::uint64_t arrivals = m_arrivals.load(std::memory_order_seq_cst);
        if (!m_watched.empty()) {
            lookAtWatched(guard);
            if (!m_offers.empty()) continue;
        }
        if (!spun) {
            // What the last run left behind goes first, without the lock; then a short watch.
            spun = true;
            ++m_spinning;
            guard.unlock();
            garbage.clear();
            const auto until = std::chrono::steady_clock::now() + spinBeforeParking;
            while (m_offerCount.load(std::memory_order_acquire) == 0 &&
                   m_arrivals.load(std::memory_order_acquire) == arrivals &&
                   std::chrono::steady_clock::now() < until)
                std::this_thread::yield();
            guard.lock();
            --m_spinning;
            // Work keeps coming: watch on.
            if (m_arrivals.load(std::memory_order_relaxed) != arrivals) spun = false;
            continue;
        }
        spun = false;
        if (m_spinning == 0 && !m_watched.empty()) {
            releaseWatched(guard);
            if (!m_offers.empty()) continue;
        }
        ParkedWorker parked;
        m_parked.push_back(&parked);
        if (extra) {
            parked.wake.wait_for(guard, extraWorkerIdle, [&] { return parked.woken; });
        } else {
            parked.wake.wait(guard, [&] { return parked.woken; });
        }
        if (!parked.woken) {
            // Timed out: an extra worker with nothing to do leaves.
            m_parked.erase(std::find(m_parked.begin(), m_parked.end(), &parked));
            break;
        }
    }
    return nullptr;
}

// --- tasks --------------------------------------------------------------------------------------

void Engine::registerTask(Guard&, int id, int tag, std::shared_ptr<Task> task) {
    m_tasks.add(id, tag, std::move(task));
}

void Engine::forgetTask(Guard&, int id, const Task& task) {
    m_tasks.erase(id, task);
}

const std::shared_ptr<Task>* Engine::findTask(Guard& guard, int id) {
    admitIntakes(guard);
    return m_tasks.find(id);
}

} // namespace Zel::Tasks::Detail
