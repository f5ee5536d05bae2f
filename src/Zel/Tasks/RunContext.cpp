#include <Zel/Tasks/RunContext.h>

namespace Zel::Tasks {

RunContext::~RunContext() = default;

} // namespace Zel::Tasks
