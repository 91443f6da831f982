#pragma once

/// \file
/// How cases are named after a number.

#include <stdint.h>

#include <string>

namespace Torvane::Benchmarks
{
/// \return "1 thread", "2 threads" and so on.
inline std::string Count(uint32_t count, const std::string& noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}
} // namespace Torvane::Benchmarks
