#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/NotFoundHandler.h>
#include <Zel/Net/Http/Response.h>

namespace Zel::Net::Http {

NotFoundHandler::~NotFoundHandler() = default;

void NotFoundHandler::handle(Request&, Response& response) {
    response.setStatusCode(404);
    response.setBody(std::make_shared<IO::StringStream>(std::string_view("Not Found\n")));
    response.headers().setContentType("text/plain; charset=utf-8");
}

} // namespace Zel::Net::Http
