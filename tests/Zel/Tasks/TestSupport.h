#pragma once

#include <Zel/Async/Threads/Manager.h>
#include <Zel/Events/Manager.h>
#include <Zel/Log/LogString.h>
#include <Zel/Tasks/EventTaskRunStateChanged.h>
#include <Zel/Tasks/Manager.h>
#include <Zel/Tasks/Queue.h>
#include <Zel/Tasks/Task.h>
#include <Zel/Tasks/TaskRun.h>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Zel::Tasks::Testing {

using namespace std::chrono_literals;

// Polls until `condition` holds. The timeout only catches a hang; no test relies on it passing.
template <class Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds timeout = 30s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(200us);
    }
    return true;
}

// A one-way door: run callbacks wait at it until the test opens it.
class Gate {
public:
    void open() {
        {
            std::lock_guard lock(m_mutex);
            m_open = true;
        }
        m_changed.notify_all();
    }
    // False only when the test forgot to open the gate (after a generous timeout).
    bool wait(std::chrono::milliseconds timeout = 30s) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, timeout, [this] { return m_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
};

// A started manager with a log, an event manager and a thread pool of its own; stopped on destruction.
struct TaskSystem {
    explicit TaskSystem(std::chrono::milliseconds sweepInterval = 5000ms,
                        std::chrono::milliseconds keepFinished = 30000ms,
                        std::shared_ptr<IClock> clock = nullptr, int workers = 0) {
        manager.setHousekeeping(sweepInterval, keepFinished);
        if (clock) manager.setClock(std::move(clock));
        manager.setWorkerPool(workers, 5ms);
        manager.start();
    }
    ~TaskSystem() { manager.stop(); }

    std::shared_ptr<Log::LogString> log = std::make_shared<Log::LogString>();
    std::shared_ptr<Events::Manager> events = std::make_shared<Events::Manager>(log);
    std::shared_ptr<Async::Threads::Manager> threads = std::make_shared<Async::Threads::Manager>(log);
    Manager manager{threads, log, events};
};

inline std::shared_ptr<Task> makeTask(const std::string& name, Task::RunCallback run,
                                      Task::FinishedCallback finished = nullptr,
                                      const TaskOptions& options = TaskOptions()) {
    auto task = std::make_shared<Task>(name, std::move(run), std::move(finished));
    task->setOptions(options);
    return task;
}

// Everything EventTaskRunStateChanged reported, per run and per task.
class StateRecorder {
public:
    explicit StateRecorder(Events::Manager& events) : m_events(events) {
        m_handler = events.attach<EventTaskRunStateChanged>(
            EventTaskRunStateChanged::eventName, [this](const EventTaskRunStateChanged& event) {
                std::lock_guard lock(m_mutex);
                auto& states = m_byRun[event.taskRun().get()];
                if (states.empty() && m_keepRuns) m_runsByTask[event.taskId()].push_back(event.taskRun());
                states.push_back(event.state());
            });
    }
    ~StateRecorder() { m_events.detach(m_handler); }

    // The runs of a task in the order they were created.
    std::vector<std::shared_ptr<TaskRun>> runs(int taskId) const {
        std::lock_guard lock(m_mutex);
        auto found = m_runsByTask.find(taskId);
        return found == m_runsByTask.end() ? std::vector<std::shared_ptr<TaskRun>>() : found->second;
    }
    std::vector<int> states(const std::shared_ptr<TaskRun>& run) const {
        std::lock_guard lock(m_mutex);
        auto found = m_byRun.find(run.get());
        if (found == m_byRun.end()) return {};
        return std::vector<int>(found->second.begin(), found->second.end());
    }
    // Drops the recorder's references to runs and keeps none of the runs seen from now on (retries
    // may still start before a stop), so that leak checks see only the library's.
    void forgetRuns() {
        std::lock_guard lock(m_mutex);
        m_runsByTask.clear();
        m_keepRuns = false;
    }

private:
    Events::Manager& m_events;
    Events::IManager::HandlerId m_handler = 0;
    mutable std::mutex m_mutex;
    std::map<const TaskRun*, std::vector<TaskRun::State>> m_byRun;
    std::map<int, std::vector<std::shared_ptr<TaskRun>>> m_runsByTask;
    bool m_keepRuns = true;
};

} // namespace Zel::Tasks::Testing
