#include <Zel/Detail/ExtValue.h>

namespace Zel::Detail {

ExtValue::~ExtValue() = default;

} // namespace Zel::Detail
