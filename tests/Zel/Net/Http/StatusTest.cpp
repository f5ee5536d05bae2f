#include <Zel/Net/Http/Status.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Zel::Net::Http {
namespace {

TEST(Status, HoldsEveryTextExactly) {
    const std::vector<std::pair<int, std::string>> table = {
        {100, "Continue"},
        {101, "Switching Protocols"},
        {200, "OK"},
        {201, "Created"},
        {202, "Accepted"},
        {203, "Non-Authoritative Information"},
        {204, "No Content"},
        {205, "Reset Content"},
        {206, "Partial Content"},
        {300, "Multiple Choices"},
        {301, "Moved Permanently"},
        {302, "Found"},
        {303, "See Other"},
        {304, "Not Modified"},
        {305, "Use Proxy"},
        {307, "Temporary Redirect"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {402, "Payment Required"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {406, "Not Acceptable"},
        {407, "Proxy Authentication Required"},
        {408, "Request Time-out"},
        {409, "Conflict"},
        {410, "Gone"},
        {411, "Length Required"},
        {412, "Precondition Failed"},
        {413, "Request Entity Too Large"},
        {414, "Request-URI Too Large"},
        {415, "Unsupported Media Type"},
        {416, "Requested range not satisfiable"},
        {417, "Expectation Failed"},
        {418, "I'm a teapot"},
        {422, "Unprocessable Entity(WebDAV)"},
        {423, "Locked(WebDAV)"},
        {424, "Failed Dependency(WebDAV)"},
        {425, "Unordered Collection"},
        {426, "Upgrade Required"},
        {444, "No Response"},
        {449, "Retry With"},
        {450, "Blocked by Windows Parental Controls"},
        {499, "Client Closed Request"},
        {500, "Internal Server Error"},
        {501, "Not Implemented"},
        {502, "Bad Gateway"},
        {503, "Service Unavailable"},
        {504, "Gateway Time-out"},
        {505, "HTTP Version not supported"},
        {506, "Variant Also Negotiates"},
        {507, "Insufficient Storage (WebDAV)"},
        {509, "Bandwidth Limit Exceeded (Apache)"},
        {510, "Not Extended"},
    };
    for (const auto& [code, text] : table) {
        SCOPED_TRACE(code);
        EXPECT_EQ(Status::text(code), text);
    }
    // Nothing more than those 54 codes: the neighbours 299, 306, 508, 600, 0 and negatives have no text.
    int known = 0;
    for (int code = -1000; code < 2000; ++code)
        known += Status::text(code).empty() ? 0 : 1;
    EXPECT_EQ(known, static_cast<int>(table.size()));
}

} // namespace
} // namespace Zel::Net::Http
