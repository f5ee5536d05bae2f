#include <Zel/Json/Detail/DecimalDigits.h>
#include <Zel/Json/Detail/DoubleWriter.h>
#include <Zel/Json/Detail/ScaledPowersOf10.h>
#include <Zel/Json/Detail/Uint128.h>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Zel::Json::Detail {

namespace {

// Valid over the exponents of doubles, as integer arithmetic with an arithmetic right shift.
inline int floorLog10Pow2(int e) noexcept {
    return (e * 1262611) >> 22;
}
inline int floorLog10ThreeQuartersPow2(int e) noexcept {
    return (e * 1262611 - 524031) >> 22;
}
inline int floorLog2Pow10(int e) noexcept {
    return (e * 1741647) >> 19;
}

// floor(g * cp / 2^128), with the lowest bit set when the product has a fraction: rounding to odd
// keeps enough of the dropped bits to compare against the interval's bounds exactly.
inline std::uint64_t roundToOdd(Uint128 g, std::uint64_t cp) noexcept {
    const Uint128 low = multiply(g.low, cp);
    const Uint128 high = multiply(g.high, cp);
    const std::uint64_t middle = high.low + low.high;
    const std::uint64_t whole = high.high + (middle < high.low ? 1 : 0);
    return whole | (middle != 0 ? 1 : 0);
}

struct Decimal {
    std::uint64_t digits; // at most 17 of them
    int exponent;
};

constexpr int significandBits = 52;
constexpr std::uint64_t hiddenBit = std::uint64_t{1} << significandBits;
constexpr int exponentBias = 1023 + significandBits;

// The shortest decimal in the interval of reals that round to c * 2^q, the closest to it among the
// shortest, ties to an even last digit; trailing zeros are not yet removed.
Decimal shortestDecimal(std::uint64_t c, int q, bool lowerBoundaryIsCloser) noexcept {
    // The bounds round half to even: an even significand owns them.
    const bool even = (c & 1) == 0;
    const std::uint64_t cbl = 4 * c - 2 + (lowerBoundaryIsCloser ? 1 : 0);
    const std::uint64_t cb = 4 * c;
    const std::uint64_t cbr = 4 * c + 2;

    const int k = lowerBoundaryIsCloser ? floorLog10ThreeQuartersPow2(q) : floorLog10Pow2(q);
    const int h = q + floorLog2Pow10(-k) + 1; // 1..4: the shifted bounds stay below 2^59
    const Uint128 g = scaledPowersOf10[-k - minPowerOf10];
    const std::uint64_t vbl = roundToOdd(g, cbl << h);
    const std::uint64_t vb = roundToOdd(g, cb << h);
    const std::uint64_t vbr = roundToOdd(g, cbr << h);
    const std::uint64_t lower = vbl + (even ? 0 : 1);
    const std::uint64_t upper = vbr - (even ? 0 : 1);

    // Scaled by 4: vb / 4 is the value times 10^-k, a 16- or 17-digit integer part.
    const std::uint64_t s = vb / 4;
    if (s >= 10) {
        // One digit fewer: at most one multiple of ten lies in the interval.
        const std::uint64_t sp = s / 10;
        const bool upInside = lower <= 40 * sp;
        const bool wpInside = 40 * sp + 40 <= upper;
        if (upInside != wpInside) return {sp + (wpInside ? 1 : 0), k + 1};
    }
    const bool uInside = lower <= 4 * s;
    const bool wInside = 4 * s + 4 <= upper;
    if (uInside != wInside) return {s + (wInside ? 1 : 0), k};
    const std::uint64_t middle = 4 * s + 2;
    const bool roundUp = vb > middle || (vb == middle && (s & 1) != 0);
    return {s + (roundUp ? 1 : 0), k};
}

void removeTrailingZeros(Decimal& decimal) noexcept {
    if (decimal.digits % 10 != 0) return; // most digits of measured data end in a non-zero
    // Up to sixteen zeros: eight at a time, then at most seven more by halves.
    while (decimal.digits % 100000000 == 0) {
        decimal.digits /= 100000000;
        decimal.exponent += 8;
    }
    if (decimal.digits % 10000 == 0) {
        decimal.digits /= 10000;
        decimal.exponent += 4;
    }
    if (decimal.digits % 100 == 0) {
        decimal.digits /= 100;
        decimal.exponent += 2;
    }
    if (decimal.digits % 10 == 0) {
        decimal.digits /= 10;
        decimal.exponent += 1;
    }
}

// The exact value c * 2^q of a whole double from 2^53 up, where the shortest digits would print
// zeros in place of its low digits; below 10^22 here, so q is at most 21.
char* writeExactWhole(char* out, std::uint64_t c, int q) noexcept {
    // c * 2^q = (high * 10^8 + low) * 2^q, and each part times 2^q fits in 64 bits.
    const std::uint64_t high = c / 100000000;
    const std::uint64_t low = c % 100000000;
    const std::uint64_t lowShifted = low << q;
    const std::uint64_t leading = (high << q) + lowShifted / 100000000;
    out = writeUnsigned(out, leading);
    writeEightDigits(out, static_cast<std::uint32_t>(lowShifted % 100000000));
    return out + 8;
}

} // namespace

char* DoubleWriter::write(char* out, double value) noexcept {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const std::uint64_t fraction = bits & (hiddenBit - 1);
    const auto biasedExponent = static_cast<int>((bits >> significandBits) & 0x7FF);
    *out = '-';
    out += bits >> 63;

    Decimal decimal;
    std::uint64_t c;
    int q;
    if (biasedExponent != 0) {
        c = hiddenBit | fraction;
        q = biasedExponent - exponentBias;
        if (q <= 0 && q > -significandBits - 1 && (c & ((std::uint64_t{1} << -q) - 1)) == 0) {
            // A whole number below 2^53: its digits are its value.
            decimal = {c >> -q, 0};
        } else {
            decimal = shortestDecimal(c, q, fraction == 0 && biasedExponent > 1);
        }
    } else if (fraction != 0) {
        c = fraction;
        q = 1 - exponentBias;
        decimal = shortestDecimal(c, q, false);
    } else {
        std::memcpy(out, "0.0", 3);
        return out + 3;
    }
    removeTrailingZeros(decimal);

    // All 17 digit places, leading zeros included, with no branch on the count; the text uses the
    // last `length` of them. The buffer is long enough for the fixed-size copies below.
    char buffer[48] = {};
    const std::uint64_t top = decimal.digits / 10000000000000000ULL;
    const std::uint64_t rest = decimal.digits % 10000000000000000ULL;
    buffer[0] = static_cast<char>('0' + top);
    writeEightDigits(buffer + 1, static_cast<std::uint32_t>(rest / 100000000));
    writeEightDigits(buffer + 9, static_cast<std::uint32_t>(rest % 100000000));
    const int length = decimalLength(decimal.digits);
    const char* digits = buffer + 17 - length;

    // The plain form of std::to_chars: fixed unless scientific is shorter.
    const int exponent = decimal.exponent;
    const int scientificExponent = exponent + length - 1;
    const int fixedLength = exponent >= 0             ? length + exponent
                            : scientificExponent >= 0 ? length + 1
                                                      : length + 1 - scientificExponent;
    const int scientificLength =
        length + (length > 1 ? 1 : 0) + (scientificExponent >= 100 || scientificExponent <= -100 ? 5 : 4);

    if (fixedLength <= scientificLength) {
        if (exponent >= 0) {
            if (exponent > 0 && q > 0) {
                out = writeExactWhole(out, c, q);
            } else {
                std::memcpy(out, digits, 24);
                out += length;
                std::memcpy(out, "00000000", 8);
                out += exponent;
            }
            std::memcpy(out, ".0", 2);
            return out + 2;
        }
        if (scientificExponent >= 0) {
            // The point splits the digits: copy both sides whole and let the second overwrite.
            const int whole = scientificExponent + 1;
            std::memcpy(out, digits, 16);
            std::memcpy(out + whole + 1, digits + whole, 16);
            out[whole] = '.';
            return out + length + 1;
        }
        const int zeros = -scientificExponent - 1;
        std::memcpy(out, "0.000000", 8);
        std::memcpy(out + 2 + zeros, digits, 24);
        return out + 2 + zeros + length;
    }

    out[0] = digits[0];
    if (length > 1) {
        out[1] = '.';
        std::memcpy(out + 2, digits + 1, 16);
        out += length + 1;
    } else {
        out += 1;
    }
    out[0] = 'e';
    out[1] = scientificExponent < 0 ? '-' : '+';
    out += 2;
    auto magnitude =
        static_cast<std::uint32_t>(scientificExponent < 0 ? -scientificExponent : scientificExponent);
    if (magnitude >= 100) {
        *out++ = static_cast<char>('0' + magnitude / 100);
        magnitude %= 100;
    }
    writeDigitPair(out, magnitude);
    return out + 2;
}

} // namespace Zel::Json::Detail
