#include <Zel/Json/Detail/DecimalToDouble.h>
#include <Zel/Json/Detail/PowersOfFive.h>
#include <Zel/Json/Detail/Uint128.h>
#include <bit>

namespace Zel::Json::Detail {

namespace {

// The powers of ten that a double holds exactly.
constexpr double exactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                       1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// Eisel and Lemire's method: the leading bits of mantissa * 5^exponent from one or two 64-bit
// multiplications by the table, and the binary exponent from a fixed-point log2(10).
bool eiselLemire(std::uint64_t mantissa, int exponent, double& value) noexcept {
    constexpr int explicitBits = 52;
    constexpr int shift = 64 - explicitBits - 3; // the product's bits below mantissa and round bits
    constexpr std::uint64_t precisionMask = ~std::uint64_t{0} >> (explicitBits + 3);
    if (mantissa == 0 || exponent < smallestPowerOfFive || exponent > largestPowerOfFive) return false;
    const int leadingZeros = std::countl_zero(mantissa);
    mantissa <<= leadingZeros;
    const std::uint64_t* power = powersOfFive[exponent - smallestPowerOfFive];
    Uint128 product = multiply(mantissa, power[0]);
    if ((product.high & precisionMask) == precisionMask) {
        // The bits that decide the rounding may still move: take the table's low word too.
        const Uint128 correction = multiply(mantissa, power[1]);
        product.low += correction.high;
        if (correction.high > product.low) ++product.high;
    }
    // Too close to call with 128 bits of the power: from_chars decides.
    if (product.low == ~std::uint64_t{0}) return false;

    const int upperBit = static_cast<int>(product.high >> 63);
    std::uint64_t bits = product.high >> (upperBit + shift);
    // floor(exponent * log2(10)) + 63 as fixed point, biased as the double's exponent field.
    int binaryExponent = (((152170 + 65536) * exponent) >> 16) + 63 + upperBit - leadingZeros + 1023;
    if (binaryExponent <= 0) return false; // subnormal or zero

    // A product exactly halfway between two doubles rounds to the even one. Only powers of five
    // small enough to be exact in 128 bits can produce one.
    if (product.low <= 1 && exponent >= -4 && exponent <= 23 && (bits & 3) == 1 &&
        (bits << (upperBit + shift)) == product.high) {
        bits &= ~std::uint64_t{1};
    }
    bits += bits & 1;
    bits >>= 1;
    if (bits >= std::uint64_t{2} << explicitBits) {
        bits = std::uint64_t{1} << explicitBits;
        ++binaryExponent;
    }
    bits &= ~(std::uint64_t{1} << explicitBits);
    if (binaryExponent >= 0x7FF) return false; // out of range
    value = std::bit_cast<double>(bits | static_cast<std::uint64_t>(binaryExponent) << explicitBits);
    return true;
}

} // namespace

bool decimalToDouble(std::uint64_t mantissa, int exponent, double& value) noexcept {
    // Clinger's fast path: both factors are exact doubles, so one operation rounds once.
    if (mantissa <= std::uint64_t{1} << 53 && exponent >= -22 && exponent <= 22) {
        const auto exact = static_cast<double>(mantissa);
        value = exponent < 0 ? exact / exactPowersOfTen[-exponent] : exact * exactPowersOfTen[exponent];
        return true;
    }
    return eiselLemire(mantissa, exponent, value);
}

} // namespace Zel::Json::Detail
