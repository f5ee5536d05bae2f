#include <Zel/GenericException.h>
#include <Zel/IO/BufferedStream.h>
#include <Zel/IO/MemoryStream.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/Method.h>
#include <Zel/Net/Http/Reader.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Utils.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Reads the input as a request three ways: byte by byte from a plain stream, and through buffers
// of 16 and 4096 bytes, where the reader scans in place. All three must agree on the message (or
// on the exact failure). A request that reads is then written and read again and must come back
// the same.

namespace {

using namespace Zel::Net::Http;

struct Outcome {
    std::string error;
    std::string method;
    std::string requestUri;
    std::int32_t major = 0;
    std::int32_t minor = 0;
    std::vector<std::pair<std::string, std::string>> headers;
    bool hasBody = false;
    std::string body;
    bool operator==(const Outcome&) const = default;
};

[[noreturn]] void fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "zel-fuzz-http-request: %s: %s\n", what, detail.c_str());
    std::abort();
}

std::string describe(const Outcome& outcome) {
    std::string text = "error=" + outcome.error + " method=" + outcome.method + " uri=" + outcome.requestUri +
                       " version=" + std::to_string(outcome.major) + "." + std::to_string(outcome.minor) +
                       " body=" + std::to_string(outcome.body.size()) + " headers:";
    for (const auto& [name, value] : outcome.headers)
        text += " [" + name + "=" + value + "]";
    return text;
}

// Skipping a header takes its own path through the parser; "Cookie" lines are common enough.
const Reader reader(std::set<std::string, std::less<>>{"Cookie"});

Outcome read(std::string_view input, std::size_t bufferSize, Request& request) {
    std::shared_ptr<Zel::IO::IStream> stream = std::make_shared<Zel::IO::MemoryStream>(input);
    if (bufferSize != 0) stream = std::make_shared<Zel::IO::BufferedStream>(stream, bufferSize);
    Outcome outcome;
    try {
        reader.readRequest(stream, request);
        outcome.hasBody = request.hasBody();
        // Small reads, so that the body streams cross their sources' pieces often.
        char piece[7];
        while (const std::size_t count = request.body()->read(piece, sizeof piece))
            outcome.body.append(piece, count);
    } catch (const Zel::GenericException& e) {
        outcome.error = e.what();
    }
    outcome.method = request.method();
    outcome.requestUri = request.requestUri();
    outcome.major = request.version().major();
    outcome.minor = request.version().minor();
    outcome.headers.assign(request.headers().begin(), request.headers().end());
    std::sort(outcome.headers.begin(), outcome.headers.end());
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    Request request;
    const Outcome plain = read(input, 0, request);
    for (const std::size_t bufferSize : {16u, 4096u}) {
        Request other;
        const Outcome buffered = read(input, bufferSize, other);
        if (buffered != plain) {
            fail("a buffered read differs from the plain one",
                 describe(plain) + "\n  buffered: " + describe(buffered));
        }
    }
    if (!plain.error.empty()) return 0;
    // With "Transfer-Encoding: chunked" the reader never looks at "Content-Encoding"; written
    // back with a length instead, the same message is refused for its coding, as it must be.
    if (const auto coding = request.headers().find("Content-Encoding"); coding && !coding->empty()) return 0;

    // Written with the decoded body, the request must read back as it was.
    Request copy = request;
    copy.headers().erase("Transfer-Encoding");
    if (Method::hasRequestBody(copy.method()))
        copy.setBody(std::make_shared<Zel::IO::StringStream>(plain.body));
    const std::string wire = Utils::dump(copy);
    Request again;
    const Outcome reread = read(wire, 64, again);
    Outcome expected = plain;
    expected.headers.assign(copy.headers().begin(), copy.headers().end());
    std::sort(expected.headers.begin(), expected.headers.end());
    if (reread != expected)
        fail("the written request reads back differently",
             describe(expected) + "\n  reread: " + describe(reread));
    return 0;
}
