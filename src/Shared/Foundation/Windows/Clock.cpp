#include "Shared/Foundation/Windows/Clock.h"

#include <stdint.h>
#include <windows.h>

namespace Torvane
{
namespace
{
int64_t timeOrigin = 0;
}

void SetTimeOrigin()
{
    LARGE_INTEGER counter = {};
    QueryPerformanceCounter(&counter);
    timeOrigin = counter.QuadPart;
}

double SecondsSinceStartup()
{
    LARGE_INTEGER counter = {};
    QueryPerformanceCounter(&counter);
    const uint64_t elapsed = static_cast<uint64_t>(counter.QuadPart) - static_cast<uint64_t>(timeOrigin);
    LARGE_INTEGER frequency = {};
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(elapsed) / static_cast<double>(frequency.QuadPart);
}
} // namespace Torvane
