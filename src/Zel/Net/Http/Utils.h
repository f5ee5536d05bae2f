#pragma once

#include <Zel/Export.h>

#include <string>

namespace Zel::Net::Http {

class Request;
class Response;

// The wire form of messages as text, for diagnostics and tests.
namespace Utils {

// The request as Writer::writeRequest puts it on the wire, head and body. Reads the body.
ZEL_API std::string dump(const Request& request);

// Attaches `body` to the response (which sets "Content-Length"), then returns the response as
// Writer::writeResponse puts it on the wire.
ZEL_API std::string dump(Response& response, const std::string& body);

} // namespace Utils

} // namespace Zel::Net::Http
