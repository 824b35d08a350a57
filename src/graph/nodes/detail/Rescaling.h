#pragma once
// Division of coordinates.

#include <cmath>
#include <cstdint>
#include <utility>

namespace graph::nodes::detail {

/// How many pixels of an (a by b) image make one pixel of a (c by d) image: a / c and b / d.
inline std::pair<double, double> rescalingCoefficient(double a, double b, double c, double d) { return {a / c, b / d}; }

inline constexpr double quotientLimit = 2147483648.0; // 2^31

/// True when no coordinate divided by `divisor` reaches 2^31; false for NaN and 0.
inline bool quotientsFit(double divisor) { return std::abs(divisor) > 65535.0 / quotientLimit; }

/// value / divisor, cut towards zero, modulo 65536. Needs quotientsFit(divisor).
inline std::uint16_t cutFittingQuotient(std::uint16_t value, double divisor)
{
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(value / divisor));
}

/// The same for any divisor. A quotient beyond 32 bits gives 0, as do division by 0 and NaN: the processor's own
/// conversion leaves 0 in the low 16 bits.
inline std::uint16_t cutQuotient(std::uint16_t value, double divisor)
{
    if (divisor == 0)
        return 0;
    const double quotient = value / divisor;
    return std::abs(quotient) < quotientLimit ? static_cast<std::uint16_t>(static_cast<std::int32_t>(quotient)) : 0;
}

} // namespace graph::nodes::detail
