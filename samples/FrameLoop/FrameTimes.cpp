#include "samples/FrameLoop/FrameTimes.h"

#include <stdio.h>

#include <windows.h>

namespace Torvane::Sample
{
namespace
{
double Milliseconds()
{
    LARGE_INTEGER frequency;
    LARGE_INTEGER counter;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) * 1000 / static_cast<double>(frequency.QuadPart);
}
} // namespace

FrameClock::FrameClock(double frameTime)
    : frameTime(frameTime)
    , start(Milliseconds())
{
}

double FrameClock::EndFrame()
{
    constexpr double shortestSleep = 2; // milliseconds; a sleep of one can take as long
    double now = Milliseconds();
    while (now - start < frameTime)
    {
        Sleep(frameTime - (now - start) > shortestSleep ? 1 : 0);
        now = Milliseconds();
    }
    const double time = now - start;
    start = now;
    return time;
}

void FrameTimes::Add(double time)
{
    ++count;
    sum += time;
    longest = time > longest ? time : longest;
}

void FrameTimes::Print(const char* phase) const
{
    printf("time  %-24s %4u frames  mean %6.2f ms  longest %6.2f ms\n", phase, count,
           count == 0 ? 0 : sum / count, longest);
}
} // namespace Torvane::Sample
