#pragma once

#include <Zel/GenericException.h>
#include <string>

namespace Zel::Orm {

// A failure of the object mapper: an object or class that cannot be found, a write outside a
// transaction, an object used after its session went away. Database failures underneath stay
// Db::DbException, and misuse of a component in the wrong state InvalidOperationException.
class ZEL_API Exception : public GenericException {
public:
    explicit Exception(std::string message);
    ~Exception() override;
};

} // namespace Zel::Orm
