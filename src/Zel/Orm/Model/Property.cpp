#include <Zel/Orm/Model/Property.h>
#include <utility>

namespace Zel::Orm::Model {

Property::Property(std::string name, Options options, std::string defaultSqlType)
    : m_name(std::move(name)), m_column(options.column.empty() ? m_name : std::move(options.column)),
      m_sqlType(options.sqlType.empty() ? std::move(defaultSqlType) : std::move(options.sqlType)) {}

Property::~Property() = default;

} // namespace Zel::Orm::Model
