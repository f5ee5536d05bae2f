#include <Zel/Json/ParserException.h>

namespace Zel::Json {

ParserException::~ParserException() = default;

} // namespace Zel::Json
