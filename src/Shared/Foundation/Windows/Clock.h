#pragma once

/// \file
/// The time of log records. The origin is set at startup; any thread reads the time.

namespace Torvane
{
/// Takes now as the origin of `SecondsSinceStartup`.
void SetTimeOrigin();

/// Seconds since the origin, by the performance counter.
double SecondsSinceStartup();
} // namespace Torvane
