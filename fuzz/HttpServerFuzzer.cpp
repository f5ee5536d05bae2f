#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/Detail/RequestFramer.h>
#include <Zel/Net/Http/Request.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// Drives one server connection with the input as the bytes a peer sends: the head cap, the
// framing check, the head parser and the body streams, exactly as the server runs them. The same
// bytes arriving whole, in 7-byte pieces and one byte at a time must give the same story
// (requests with their bodies, "100 Continue" aside, and the refusal that ends it); a refusal
// must be one of the statuses the server answers.

namespace {

using Zel::Net::Http::Detail::RequestFramer;

std::string run(std::string_view input, std::size_t piece) {
    RequestFramer framer({512, 16, 256});
    std::string story;
    std::size_t fed = 0;
    Zel::Net::Http::Request request;
    while (true) {
        const auto step = framer.next(request);
        if (step == RequestFramer::Step::SendContinue) continue;
        if (step == RequestFramer::Step::Refuse) {
            const int status = framer.refusalStatus();
            if (status != 400 && status != 413 && status != 431 && status != 501 && status != 505)
                std::abort();
            story += "refused " + std::to_string(status) + "\n";
            return story;
        }
        if (step == RequestFramer::Step::Request) {
            story +=
                request.method() + " " + request.requestUri() + " " + request.version().toString() + "\n";
            Zel::IO::StringStream body;
            request.body()->copyTo(body);
            if (static_cast<std::int64_t>(body.str().size()) > 256) std::abort();
            story += body.str() + "\n";
            continue;
        }
        if (fed == input.size()) return story + "open\n";
        const std::size_t size = std::min(piece, input.size() - fed);
        framer.append(input.substr(fed, size));
        fed += size;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::string whole = run(input, input.size() + 1);
    if (run(input, 7) != whole || run(input, 1) != whole) {
        std::fprintf(stderr, "the story depends on how the bytes arrive\n");
        std::abort();
    }
    return 0;
}
