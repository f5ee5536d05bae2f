#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Zel::Detail {

// 64-bit FNV-1a over the bytes of a name. The name maps of the platform (services, operations,
// the locator and the factory) key on it: exact and case-sensitive, cheap for the short names they
// hold, and the same on every platform. Transparent, so a string_view looks up without a copy.
struct Fnv1aHash {
    using is_transparent = void;

    static constexpr std::uint64_t offsetBasis = 0xcbf29ce484222325ULL;
    static constexpr std::uint64_t prime = 0x100000001b3ULL;

    static constexpr std::uint64_t hash(std::string_view text) noexcept {
        std::uint64_t value = offsetBasis;
        for (const char c : text) {
            value ^= static_cast<unsigned char>(c);
            value *= prime;
        }
        return value;
    }

    std::size_t operator()(std::string_view text) const noexcept { return hash(text); }
    std::size_t operator()(const std::string& text) const noexcept { return hash(text); }
    std::size_t operator()(const char* text) const noexcept { return hash(text); }
};

static_assert(Fnv1aHash::hash("") == 0xcbf29ce484222325ULL);
static_assert(Fnv1aHash::hash("a") == 0xaf63dc4c8601ec8cULL);

} // namespace Zel::Detail
