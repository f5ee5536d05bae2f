#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

// Whatever the reader accepts, the writer must turn into text that the reader accepts again and
// that writes back unchanged: parse, write, parse, write, and the two texts must be equal.

namespace {

[[noreturn]] void fail(const char* what, std::string_view detail) {
    std::fprintf(stderr, "zel-fuzz-json: %s: %.*s\n", what, static_cast<int>(detail.size()), detail.data());
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    Zel::Variant first;
    try {
        first = Zel::Json::parse(input);
    } catch (const Zel::GenericException&) {
        return 0; // refusing the input is fine; any other exception escapes and is reported
    }

    std::string firstText;
    try {
        firstText = first.toJson();
    } catch (const std::exception& e) {
        fail("writing a parsed value threw", e.what());
    }

    Zel::Variant second;
    try {
        second = Zel::Json::parse(firstText);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zel-fuzz-json: written text: %s\n", firstText.c_str());
        fail("the written text does not parse", e.what());
    }

    const std::string secondText = second.toJson();
    if (secondText != firstText) {
        std::fprintf(stderr, "zel-fuzz-json: first  text: %s\n", firstText.c_str());
        fail("the text changed on a second round trip", secondText);
    }
    return 0;
}
