#pragma once

#include <cstdint>
#include <string>

namespace Zel::Orm {

// What a SessionFactory is built with. The names are used in SQL as they stand.
struct Config {
    // Row snapshots the shared cache keeps; 0 turns the cache off.
    std::int32_t cacheCapacity = 10000;
    // The database sequence (generator) that issues every object id.
    std::string idSequence = "genOrmObjectId";
    // The table recording each object's id and DB class name.
    std::string objectInfoTable = "tblOrmObjects";
};

} // namespace Zel::Orm
