#pragma once

/// \file
/// Exact decimal digits of a double, without allocation. Any thread.

#include <stdint.h>

namespace Torvane
{
/// Room that `WriteDecimal` needs at most for the digits before the point and the point itself.
constexpr uint32_t maximumIntegerDigits = 311;

/// The largest precision that `WriteDecimal` writes exactly; further digits are zeros of the caller's.
constexpr uint32_t maximumDecimals = 64;

/// Writes the digits of a finite, non-negative value with `decimals` (at most `maximumDecimals`) behind the point,
/// rounded to the nearest, and to the even one of two that are equally near. No terminator.
/// \return characters written.
uint32_t WriteDecimal(char* digits, double value, uint32_t decimals);
} // namespace Torvane
