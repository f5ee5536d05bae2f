#include <Zel/Json/Object.h>
#include <Zel/Tasks/TaskAddResult.h>

namespace Zel::Tasks {

std::string TaskAddResult::toJson() const {
    Json::Object object;
    object.add("id", Variant(m_id));
    object.add("existingTask", Variant(m_existingTask));
    return object.json();
}

} // namespace Zel::Tasks
