#include <Zel/GenericException.h>
#include <Zel/IO/BufferedStream.h>
#include <Zel/IO/MemoryStream.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/Net/Http/ChunkedTransferBodyStream.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// Decodes the input as a chunked body in three ways that must agree: large reads from a plain
// stream, reads of every small size mixed with peeks over a buffered stream, and byte by byte.
// They must give the same bytes, leave the same rest in the source, or fail with the same text.

namespace {

struct Outcome {
    std::string error;
    std::string body;
    std::string rest;
    bool operator==(const Outcome&) const = default;
};

[[noreturn]] void fail(const char* what, const Outcome& a, const Outcome& b) {
    std::fprintf(
        stderr, "zel-fuzz-http-chunked: %s\n  %s | %zu bytes | rest %zu\n  %s | %zu bytes | rest %zu\n", what,
        a.error.c_str(), a.body.size(), a.rest.size(), b.error.c_str(), b.body.size(), b.rest.size());
    std::abort();
}

enum class Way { LargeReads, MixedPeeks, Bytes };

Outcome decode(std::string_view wire, Way way, unsigned seed) {
    std::shared_ptr<Zel::IO::IStream> source = std::make_shared<Zel::IO::MemoryStream>(wire);
    if (way == Way::MixedPeeks) source = std::make_shared<Zel::IO::BufferedStream>(source, 16);
    Outcome outcome;
    try {
        Zel::Net::Http::ChunkedTransferBodyStream body(source);
        char buffer[4096];
        for (std::size_t step = 0;; ++step) {
            std::size_t size = sizeof buffer;
            if (way == Way::Bytes) size = 1;
            if (way == Way::MixedPeeks) {
                size = (seed + step * 7) % 23 + 1;
                const std::size_t seen = body.peek(buffer, size);
                if (seen > size) std::abort();
                if (step % 3 == 0) size = size / 2 + 1;
            }
            const std::size_t count = body.read(buffer, size);
            if (count == 0) break;
            outcome.body.append(buffer, count);
        }
        // A finished body reads nothing more.
        if (body.read(buffer, 1) != 0) std::abort();
    } catch (const Zel::GenericException& e) {
        outcome.error = e.what();
        outcome.body.clear(); // how much was delivered before the fault depends on the read sizes
    }
    outcome.rest = Zel::IO::readAll(*source);
    if (!outcome.error.empty()) outcome.rest.clear();
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view wire(reinterpret_cast<const char*>(data), size);
    const unsigned seed = size != 0 ? data[0] : 0;
    const Outcome large = decode(wire, Way::LargeReads, seed);
    const Outcome mixed = decode(wire, Way::MixedPeeks, seed);
    if (!(mixed == large)) fail("mixed peeks and reads differ from large reads", large, mixed);
    const Outcome bytes = decode(wire, Way::Bytes, seed);
    if (!(bytes == large)) fail("reading byte by byte differs from large reads", large, bytes);
    return 0;
}
