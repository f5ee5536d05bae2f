#pragma once

#include <Zel/Detail/SimdConfig.h>
#include <bit>
#include <cstdint>
#include <cstring>

// What the byte-scanning code (JSON reader and writer, HTTP reader) may assume of the processor,
// decided here once.
//
// ZEL_SIMD_SSE2 is 1 where SSE2 is there (every x86-64); elsewhere the same scans run a word at a
// time (SWAR). Words are loaded and stored through the functions below, which put the first byte
// in memory in the lowest bits on any byte order, so the word tricks need no big-endian variant.
//
// ZEL_PORTABLE (1 with the CMake option ZEL_FORCE_PORTABLE, preset `portable`) turns both off on
// this machine: no SSE2, and loads assembled byte by byte as on a big-endian processor. The tests
// then run the code that other processors get.
#if !ZEL_PORTABLE && (defined(__SSE2__) || defined(_M_X64) || defined(_M_AMD64))
#define ZEL_SIMD_SSE2 1
#include <emmintrin.h>
#else
#define ZEL_SIMD_SSE2 0
#endif

namespace Zel::Detail {

#if ZEL_PORTABLE
inline constexpr bool nativeLittleEndian = false;
#else
inline constexpr bool nativeLittleEndian = std::endian::native == std::endian::little;
#endif

// Eight bytes as a word whose lowest byte is the first in memory.
inline std::uint64_t loadLittle64(const char* p) noexcept {
    std::uint64_t word = 0;
    if constexpr (nativeLittleEndian) {
        std::memcpy(&word, p, 8);
    } else {
        for (int i = 7; i >= 0; --i)
            word = word << 8 | static_cast<unsigned char>(p[i]);
    }
    return word;
}

// Four bytes, the same way.
inline std::uint64_t loadLittle32(const char* p) noexcept {
    if constexpr (nativeLittleEndian) {
        std::uint32_t word;
        std::memcpy(&word, p, 4);
        return word;
    } else {
        std::uint64_t word = 0;
        for (int i = 3; i >= 0; --i)
            word = word << 8 | static_cast<unsigned char>(p[i]);
        return word;
    }
}

// The reverse of loadLittle64: the lowest byte of the word goes first.
inline void storeLittle64(char* p, std::uint64_t word) noexcept {
    if constexpr (nativeLittleEndian) {
        std::memcpy(p, &word, 8);
    } else {
        for (int i = 0; i < 8; ++i, word >>= 8)
            p[i] = static_cast<char>(word & 0xFF);
    }
}

} // namespace Zel::Detail
