#pragma once

#include <cstdint>

namespace Zel::Json::Detail {

// The double nearest to mantissa * 10^exponent (ties to even), for the decimal numbers the reader
// has already split into at most 19 significant digits and a power of ten. Returns false, leaving
// `value` alone, whenever the fast methods cannot vouch for the result: zero with a large
// exponent, results that are subnormal or out of range, and the rare products too close to a
// rounding boundary. The caller then converts the text with std::from_chars, which gives the same
// double in every case this function does answer.
bool decimalToDouble(std::uint64_t mantissa, int exponent, double& value) noexcept;

} // namespace Zel::Json::Detail
