#pragma once

#include <Zel/Export.h>

namespace Zel::Net::Http {

class Request;
class Response;

// Answers one request. The request arrives complete: its body, if any, is already in memory.
// The response starts as 200 "OK" without a body; a handler sets what it needs, and may throw
// HttpException with a status line as its message ("404 Not Found") to answer that status, or any
// other exception to answer 500.
//
// Thread safety: the server calls a handler from several threads at once.
class ZEL_API IRequestHandler {
public:
    virtual ~IRequestHandler();
    virtual void handle(Request& request, Response& response) = 0;
};

} // namespace Zel::Net::Http
