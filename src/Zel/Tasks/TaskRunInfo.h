#pragma once

#include <Zel/Export.h>
#include <Zel/Tasks/TaskRun.h>
#include <string>

namespace Zel::Tasks {

// A snapshot of a task's current run, taken under the manager's lock by Manager::getTaskRunInfo.
class ZEL_API TaskRunInfo {
public:
    // False when the manager knows no task under the id (never added, or swept); the other fields
    // then keep their defaults.
    bool found = false;
    int taskId = 0;
    std::string name;
    std::string queue;
    // 0 when found is false.
    TaskRun::State state = static_cast<TaskRun::State>(0);
    TaskRun::TimePoint runAt;
    TaskRun::TimePoint started;
    TaskRun::TimePoint finished;
    int retried = 0;
    int progress = 0;

    // {"found":..,"taskId":..,"name":..,"queue":..,"state":..,"runAt":..,"started":..,"finished":..,
    // "retried":..,"progress":..}, times as in TaskRun::toJson.
    std::string toJson() const;
};

} // namespace Zel::Tasks
