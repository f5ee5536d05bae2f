#pragma once

#include <Zel/Detail/Simd.h>
#include <bit>
#include <cstdint>
#include <cstring>

// Decimal digits of unsigned integers, two at a time from a table: half the divisions of a digit
// loop, and the divisions by constants compile to multiplications.
namespace Zel::Json::Detail {

inline constexpr char digitPairs[] = "00010203040506070809"
                                     "10111213141516171819"
                                     "20212223242526272829"
                                     "30313233343536373839"
                                     "40414243444546474849"
                                     "50515253545556575859"
                                     "60616263646566676869"
                                     "70717273747576777879"
                                     "80818283848586878889"
                                     "90919293949596979899";

inline constexpr std::uint64_t powersOf10[] = {1ULL,
                                               10ULL,
                                               100ULL,
                                               1000ULL,
                                               10000ULL,
                                               100000ULL,
                                               1000000ULL,
                                               10000000ULL,
                                               100000000ULL,
                                               1000000000ULL,
                                               10000000000ULL,
                                               100000000000ULL,
                                               1000000000000ULL,
                                               10000000000000ULL,
                                               100000000000000ULL,
                                               1000000000000000ULL,
                                               10000000000000000ULL,
                                               100000000000000000ULL,
                                               1000000000000000000ULL,
                                               10000000000000000000ULL};

inline void writeDigitPair(char* out, std::uint32_t value) noexcept {
    std::memcpy(out, digitPairs + 2 * value, 2);
}

// How many decimal digits `value` has (1 for 0).
inline int decimalLength(std::uint64_t value) noexcept {
    // bit_width * log10(2), then one comparison settles the power of ten the estimate can miss.
    const int estimate = static_cast<int>((std::bit_width(value | 1) * 1233) >> 12);
    return estimate + (value >= powersOf10[estimate] ? 1 : 0);
}

// Exactly eight digits, leading zeros included; `value` is below 10^8.
inline void writeEightDigits(char* out, std::uint32_t value) noexcept {
    // All eight at once in one word, no dependent divisions: split into halves of four digits in
    // 32-bit lanes, then into pairs in 16-bit lanes, then into digits in bytes, each split a
    // multiply-and-shift division per lane, the first digit ending up in the lowest byte.
    const std::uint64_t x = value;
    const std::uint64_t high = (x * 0x68DB8BBULL) >> 40; // value / 10000
    const std::uint64_t halves = high | (x - high * 10000) << 32;
    const std::uint64_t hundreds = ((halves * 0x147B) >> 19) & 0x0000007F0000007FULL;
    const std::uint64_t pairs = (halves << 16) - hundreds * ((100ULL << 16) - 1);
    const std::uint64_t tens = ((pairs * 0x67) >> 10) & 0x000F000F000F000FULL;
    const std::uint64_t digits = (pairs << 8) - tens * ((10ULL << 8) - 1) + 0x3030303030303030ULL;
    Zel::Detail::storeLittle64(out, digits);
}

// The digits of a value below 10^8 and as many bytes of scratch after them as make eight.
inline char* writeBelow100Million(char* out, std::uint32_t value) noexcept {
    if (value < 10) {
        *out = static_cast<char>('0' + value);
        return out + 1;
    }
    if (value < 100) {
        writeDigitPair(out, value);
        return out + 2;
    }
    // All eight places at a fixed cost, then the leading zeros shifted out of the word.
    char places[8];
    writeEightDigits(places, value);
    const int length = decimalLength(value);
    Zel::Detail::storeLittle64(out, Zel::Detail::loadLittle64(places) >> 8 * (8 - length));
    return out + length;
}

// The digits of `value` and up to seven bytes of scratch after them.
inline char* writeUnsigned(char* out, std::uint64_t value) noexcept {
    if (value < 100000000) return writeBelow100Million(out, static_cast<std::uint32_t>(value));
    const std::uint64_t high = value / 100000000;
    const auto low = static_cast<std::uint32_t>(value % 100000000);
    if (high < 100000000) {
        out = writeBelow100Million(out, static_cast<std::uint32_t>(high));
    } else {
        out = writeBelow100Million(out, static_cast<std::uint32_t>(high / 100000000));
        writeEightDigits(out, static_cast<std::uint32_t>(high % 100000000));
        out += 8;
    }
    writeEightDigits(out, low);
    return out + 8;
}

inline char* writeSigned(char* out, std::int64_t value) noexcept {
    // The magnitude in unsigned arithmetic: negating the lowest int64 would overflow.
    auto magnitude = static_cast<std::uint64_t>(value);
    if (value < 0) {
        *out++ = '-';
        magnitude = 0 - magnitude;
    }
    return writeUnsigned(out, magnitude);
}

} // namespace Zel::Json::Detail
