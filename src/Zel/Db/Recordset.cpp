#include <Zel/Db/DbException.h>
#include <Zel/Db/Recordset.h>
#include <Zel/StringUtils.h>

namespace Zel::Db {

Recordset::~Recordset() = default;

const std::string& Recordset::columnName(std::size_t index) const {
    const auto& all = columns();
    if (index >= all.size())
        throw DbException("Db: column index out of range | index=" + std::to_string(index) +
                          " | columns=" + std::to_string(all.size()));
    return all[index].name;
}

Variant::Type Recordset::columnType(std::size_t index) const {
    const auto& all = columns();
    if (index >= all.size())
        throw DbException("Db: column index out of range | index=" + std::to_string(index) +
                          " | columns=" + std::to_string(all.size()));
    return all[index].type;
}

std::optional<std::size_t> Recordset::findColumn(std::string_view name) const {
    const auto& all = columns();
    for (std::size_t i = 0; i < all.size(); ++i)
        if (StringUtils::equalsIgnoringCase(all[i].name, name)) return i;
    return std::nullopt;
}

std::size_t Recordset::columnIndex(std::string_view name) const {
    if (auto index = findColumn(name)) return *index;
    throw DbException("Db: unknown column | column=" + std::string(name));
}

Variant Recordset::value(std::string_view name) {
    return value(columnIndex(name));
}

Variant Recordset::row() {
    Variant map = Variant::makeMap();
    const auto& all = columns();
    for (std::size_t i = 0; i < all.size(); ++i)
        if (!map.contains(all[i].name)) map.setAt(all[i].name, value(i));
    return map;
}

} // namespace Zel::Db
