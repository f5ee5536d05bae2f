#include <Zel/Net/Http/Writer.h>

#include <Zel/IO/StreamUtils.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>

#include <charconv>
#include <string>

namespace Zel::Net::Http {

namespace {

void appendNumber(std::string& out, std::int32_t value) {
    char digits[16];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    out.append(digits, result.ptr);
}

void appendProtocol(std::string& out, const Version& version) {
    out += "HTTP/";
    appendNumber(out, version.major());
    out += '.';
    appendNumber(out, version.minor());
}

// Room for the head in one allocation: the lines plus their separators.
std::size_t headSize(const Headers& headers, std::size_t firstLine) {
    std::size_t size = firstLine + 32;
    for (const auto& [name, value] : headers)
        size += name.size() + value.size() + 4;
    return size;
}

void writeHead(IO::IStream& output, const Headers& headers, std::string& head) {
    headers.appendTo(head);
    head += "\r\n";
    IO::writeAll(output, head.data(), head.size());
}

} // namespace

void Writer::writeRequest(IO::IStream& output, const Request& request) const {
    std::string head;
    head.reserve(headSize(request.headers(), request.method().size() + request.requestUri().size()));
    head += request.method();
    head += ' ';
    head += request.requestUri();
    head += ' ';
    appendProtocol(head, request.version());
    head += "\r\n";
    writeHead(output, request.headers(), head);
    request.body()->copyTo(output);
}

void Writer::writeResponse(IO::IStream& output, const Response& response) const {
    std::string head;
    head.reserve(headSize(response.headers(), response.reasonPhrase().size()));
    appendProtocol(head, response.version());
    head += ' ';
    appendNumber(head, response.statusCode());
    head += ' ';
    head += response.reasonPhrase();
    head += "\r\n";
    writeHead(output, response.headers(), head);
    response.body()->copyTo(output);
}

} // namespace Zel::Net::Http
