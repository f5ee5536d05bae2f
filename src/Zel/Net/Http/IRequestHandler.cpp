#include <Zel/Net/Http/IRequestHandler.h>

namespace Zel::Net::Http {

IRequestHandler::~IRequestHandler() = default;

} // namespace Zel::Net::Http
