#include <Zel/Parser/ParserException.h>

namespace Zel::Parser {

ParserException::~ParserException() = default;

} // namespace Zel::Parser
