#include <Zel/Net/Http/Utils.h>

#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Writer.h>

namespace Zel::Net::Http::Utils {

std::string dump(const Request& request) {
    IO::StringStream wire;
    Writer().writeRequest(wire, request);
    return wire.take();
}

std::string dump(Response& response, const std::string& body) {
    response.setBody(std::make_shared<IO::StringStream>(body));
    IO::StringStream wire;
    Writer().writeResponse(wire, response);
    return wire.take();
}

} // namespace Zel::Net::Http::Utils
