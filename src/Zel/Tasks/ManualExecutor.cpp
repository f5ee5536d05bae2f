#include <Zel/InvalidOperationException.h>
#include <Zel/Tasks/ManualExecutor.h>

namespace Zel::Tasks {

ManualExecutor::ManualExecutor(IManager& manager) : AbstractExecutor(manager) {}

ManualExecutor::~ManualExecutor() {
    shutdown();
}

void ManualExecutor::execute(std::chrono::milliseconds runDelay) {
    if (state() != State::Started) ZEL_THROW_INVALID_OPERATION();
    schedule(runDelay);
}

void ManualExecutor::schedule(std::chrono::milliseconds runDelay) {
    addRun(runDelay, Repeat::No);
}

} // namespace Zel::Tasks
