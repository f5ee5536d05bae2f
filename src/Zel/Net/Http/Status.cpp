#include <Zel/Net/Http/Status.h>

#include <string_view>
#include <unordered_map>

namespace Zel::Net::Http {

namespace {

// One line per code, "code;text". 306 and 508 are missing on purpose.
constexpr std::string_view statusTable = "100;Continue\n"
                                         "101;Switching Protocols\n"
                                         "200;OK\n"
                                         "201;Created\n"
                                         "202;Accepted\n"
                                         "203;Non-Authoritative Information\n"
                                         "204;No Content\n"
                                         "205;Reset Content\n"
                                         "206;Partial Content\n"
                                         "300;Multiple Choices\n"
                                         "301;Moved Permanently\n"
                                         "302;Found\n"
                                         "303;See Other\n"
                                         "304;Not Modified\n"
                                         "305;Use Proxy\n"
                                         "307;Temporary Redirect\n"
                                         "400;Bad Request\n"
                                         "401;Unauthorized\n"
                                         "402;Payment Required\n"
                                         "403;Forbidden\n"
                                         "404;Not Found\n"
                                         "405;Method Not Allowed\n"
                                         "406;Not Acceptable\n"
                                         "407;Proxy Authentication Required\n"
                                         "408;Request Time-out\n"
                                         "409;Conflict\n"
                                         "410;Gone\n"
                                         "411;Length Required\n"
                                         "412;Precondition Failed\n"
                                         "413;Request Entity Too Large\n"
                                         "414;Request-URI Too Large\n"
                                         "415;Unsupported Media Type\n"
                                         "416;Requested range not satisfiable\n"
                                         "417;Expectation Failed\n"
                                         "418;I'm a teapot\n"
                                         "422;Unprocessable Entity(WebDAV)\n"
                                         "423;Locked(WebDAV)\n"
                                         "424;Failed Dependency(WebDAV)\n"
                                         "425;Unordered Collection\n"
                                         "426;Upgrade Required\n"
                                         "444;No Response\n"
                                         "449;Retry With\n"
                                         "450;Blocked by Windows Parental Controls\n"
                                         "499;Client Closed Request\n"
                                         "500;Internal Server Error\n"
                                         "501;Not Implemented\n"
                                         "502;Bad Gateway\n"
                                         "503;Service Unavailable\n"
                                         "504;Gateway Time-out\n"
                                         "505;HTTP Version not supported\n"
                                         "506;Variant Also Negotiates\n"
                                         "507;Insufficient Storage (WebDAV)\n"
                                         "509;Bandwidth Limit Exceeded (Apache)\n"
                                         "510;Not Extended";

std::unordered_map<int, std::string> splitTable() {
    std::unordered_map<int, std::string> texts;
    std::string_view rest = statusTable;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        const std::size_t semicolon = line.find(';');
        int code = 0;
        for (const char digit : line.substr(0, semicolon))
            code = code * 10 + (digit - '0');
        texts.emplace(code, std::string(line.substr(semicolon + 1)));
    }
    return texts;
}

const std::unordered_map<int, std::string>& table() {
    static const std::unordered_map<int, std::string> texts = splitTable();
    return texts;
}

// Built at load time, so that no look-up on a server's hot path pays for the first use.
[[maybe_unused]] const bool tableBuilt = !table().empty();

} // namespace

const std::string& Status::text(int code) {
    static const std::string none;
    const auto& texts = table();
    const auto found = texts.find(code);
    return found != texts.end() ? found->second : none;
}

} // namespace Zel::Net::Http
