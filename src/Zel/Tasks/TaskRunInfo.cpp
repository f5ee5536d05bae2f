#include <Zel/Json/Json.h>
#include <Zel/Json/Object.h>
#include <Zel/Tasks/TaskRunInfo.h>

namespace Zel::Tasks {

namespace {

Variant steadyMilliseconds(TaskRun::TimePoint time) {
    return Variant(static_cast<std::int64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count()));
}

} // namespace

std::string TaskRunInfo::toJson() const {
    Json::Object object;
    object.add("found", Variant(found));
    object.add("taskId", Variant(taskId));
    object.addJson("name", Json::_encodeString(name));
    object.addJson("queue", Json::_encodeString(queue));
    object.add("state", Variant(static_cast<std::int32_t>(state)));
    object.add("runAt", steadyMilliseconds(runAt));
    object.add("started", steadyMilliseconds(started));
    object.add("finished", steadyMilliseconds(finished));
    object.add("retried", Variant(retried));
    object.add("progress", Variant(progress));
    return object.json();
}

} // namespace Zel::Tasks
