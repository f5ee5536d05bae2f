#pragma once

#include <cstdint>

namespace Zel::Json::Detail {

// The full product of two 64-bit words, which both decimal <-> binary conversions of doubles are
// built on.
struct Uint128 {
    std::uint64_t high;
    std::uint64_t low;
};

inline Uint128 multiply(std::uint64_t a, std::uint64_t b) noexcept {
#if defined(__SIZEOF_INT128__)
    __extension__ using Native = unsigned __int128; // __extension__: no -Wpedantic for the type
    const Native product = static_cast<Native>(a) * b;
    return {static_cast<std::uint64_t>(product >> 64), static_cast<std::uint64_t>(product)};
#else
    // Four 32-bit partial products; the middle sum cannot overflow 64 bits.
    const std::uint64_t aLow = a & 0xFFFFFFFFU;
    const std::uint64_t aHigh = a >> 32;
    const std::uint64_t bLow = b & 0xFFFFFFFFU;
    const std::uint64_t bHigh = b >> 32;
    const std::uint64_t lowLow = aLow * bLow;
    const std::uint64_t highLow = aHigh * bLow;
    const std::uint64_t lowHigh = aLow * bHigh;
    const std::uint64_t highHigh = aHigh * bHigh;
    const std::uint64_t middle = (lowLow >> 32) + (highLow & 0xFFFFFFFFU) + lowHigh;
    return {highHigh + (highLow >> 32) + (middle >> 32), (middle << 32) | (lowLow & 0xFFFFFFFFU)};
#endif
}

} // namespace Zel::Json::Detail
