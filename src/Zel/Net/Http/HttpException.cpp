#include <Zel/Net/Http/HttpException.h>

namespace Zel::Net::Http {

HttpException::~HttpException() = default;

} // namespace Zel::Net::Http
