#include <Zel/Orm/Exception.h>
#include <utility>

namespace Zel::Orm {

Exception::Exception(std::string message) : GenericException(std::move(message)) {}

Exception::~Exception() = default;

} // namespace Zel::Orm
