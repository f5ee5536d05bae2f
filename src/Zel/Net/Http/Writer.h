#pragma once

#include <Zel/Export.h>
#include <Zel/IO/IStream.h>

namespace Zel::Net::Http {

class Request;
class Response;

// Serialises messages: the head in one write, then the body stream copied to its end.
//
// The writer adds no header of its own and never applies a transfer coding: "Content-Length",
// "Transfer-Encoding" and "Connection" are what the message holds (Message::setBody and
// setBodyJson set "Content-Length" when the length is known). Writing reads the body stream, so a
// message's body is written once. Write failures of the output pass through.
class ZEL_API Writer {
public:
    // "METHOD target HTTP/major.minor", the headers, an empty line, the body.
    void writeRequest(IO::IStream& output, const Request& request) const;
    // "HTTP/major.minor code reason", the headers, an empty line, the body. An empty reason phrase
    // leaves the space after the code.
    void writeResponse(IO::IStream& output, const Response& response) const;
};

} // namespace Zel::Net::Http
