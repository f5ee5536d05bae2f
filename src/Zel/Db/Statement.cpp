#include <Zel/Db/Statement.h>

namespace Zel::Db {

Statement::~Statement() = default;

std::int64_t Statement::executeBatch(const std::vector<std::vector<Variant>>& rows) {
    std::int64_t total = 0;
    for (const auto& row : rows) {
        const std::int64_t affected = execute(row);
        if (affected < 0 || total < 0)
            total = -1;
        else
            total += affected;
    }
    return total;
}

} // namespace Zel::Db
