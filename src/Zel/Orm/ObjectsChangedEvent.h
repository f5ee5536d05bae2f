#pragma once

#include <Zel/Events/Event.h>
#include <Zel/Variant.h>
#include <string>

namespace Zel::Orm {

// Raised after a commit, once per kind of change the transaction made, under the name
// "orm.objectsChanged" ("<model name>.objectsChanged" when the model has a name). data() holds
//     {"action": "created" | "updated" | "erased",
//      "objects": [ids, ascending],
//      "columns": [column names written, over all those objects; empty for "erased"]}
// Each object counts once: erased if the transaction erased it, else created if it created it,
// else updated. Handlers run on the committing thread after the commit; what they throw is logged
// and does not undo anything.
class ZEL_API ObjectsChangedEvent : public Events::Event {
public:
    ObjectsChangedEvent(std::string name, Variant data);
    ~ObjectsChangedEvent() override;

    const Variant& data() const noexcept { return m_data; }
    std::string action() const { return static_cast<std::string>(m_data["action"]); }

private:
    Variant m_data;
};

} // namespace Zel::Orm
