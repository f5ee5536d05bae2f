#pragma once

#include <Zel/Export.h>

namespace Zel::Db {
class Connection;
}

namespace Zel::Orm {

namespace Model {
class Model;
}

// Creates on a Firebird database what a configured model needs, leaving alone what is there, so a
// program may call it on every start:
//   - the id sequence and the object-information table (id, orm_class VARCHAR(64));
//   - tblOrmLocks (id) for Session::lock;
//   - each class's table: id INTEGER PRIMARY KEY referring to the parent's table (the object-
//     information table for the first class of a chain) ON DELETE CASCADE, then one column per
//     property of its SQL type; columns added to the model since are added to the table;
//   - for chains with ORM triggers, a trigger per class table that records the object's DB class on
//     insert, and one on the first table that removes the object-information row on delete.
//
// Runs each statement in a transaction of its own: call it on a connection without an open
// transaction. Existing columns are not changed; dropping or retyping them is left to migrations.
class ZEL_API Schema {
public:
    static void create(Db::Connection& connection, const Model::Model& model);
};

} // namespace Zel::Orm
