#include <Zel/Tasks/IClock.h>

namespace Zel::Tasks {

IClock::~IClock() = default;

void IClock::setJumpListener(UniqueFunction<void()>) {}

} // namespace Zel::Tasks
