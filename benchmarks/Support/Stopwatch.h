#pragma once

/// \file
/// Time, and what is typical of many times. Any thread.

#include <stdint.h>

#include <algorithm>
#include <vector>

#include <windows.h>

namespace Torvane::Benchmarks
{
inline double Now()
{
    LARGE_INTEGER counter;
    LARGE_INTEGER frequency;
    QueryPerformanceCounter(&counter);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(counter.QuadPart) / static_cast<double>(frequency.QuadPart);
}

template<typename Function>
double Measure(Function function)
{
    const double begin = Now();
    function();
    return Now() - begin;
}

/// \param share 0.5 for the median.
inline double Quantile(std::vector<double> values, double share)
{
    std::sort(values.begin(), values.end());
    const size_t position = static_cast<size_t>(share * static_cast<double>(values.size()));
    return values[std::min(position, values.size() - 1)];
}
} // namespace Torvane::Benchmarks
