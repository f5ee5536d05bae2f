#include <Zel/Json/IJsonable.h>

namespace Zel::Json {

IJsonable::~IJsonable() = default;

} // namespace Zel::Json
