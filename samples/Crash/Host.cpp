/// \file
/// A program that crashes three times a second and continues, since the Bridge keeps it alive.
///
///     Crash [ROUNDS]

#include "Torvane/Load.h"

#include "samples/Crash/Crashes.h"
#include "samples/Crash/Show.h"

#include <stdlib.h>

#include <windows.h>

using namespace Torvane::Sample;

extern "C"
{
/// `RunGuarded` fills in the stack, and the Bridge reads it.
__declspec(dllexport) ResumePlace resumePlace = {};

/// The Bridge sets it when it has had the exception handler installed.
__declspec(dllexport) volatile uint32_t isKeptAlive = 0;
}

namespace
{
constexpr unsigned defaultRounds = 3;
constexpr DWORD timeBetweenCrashes = 333; // milliseconds
constexpr DWORD limit = 20000;            // milliseconds until the Bridge is connected

bool WaitForProtection()
{
    constexpr DWORD pause = 20; // milliseconds
    for (DWORD waited = 0; waited < limit && isKeptAlive == 0; waited += pause)
    {
        Sleep(pause);
    }
    return isKeptAlive != 0;
}

// [crash and continue]
void Crash(unsigned round)
{
    Show("host", "round %u: divides 100 by zero", round);
    Show("next", "continues after the division, with the quotient %d", DivideByZero());
    Sleep(timeBetweenCrashes);

    Show("host", "round %u: writes through a null pointer", round);
    WriteThroughNull();
    Show("next", "continues after the write");
    Sleep(timeBetweenCrashes);

    Show("host", "round %u: calls through a bad pointer", round);
    if (RunGuarded(&CallThroughBadPointer) == 0)
    {
        Show("next", "continues in the function that guards the call");
    }
    Sleep(timeBetweenCrashes);
}
// [end]
} // namespace

int main(int argc, char** argv)
{
    const unsigned rounds = argc > 1 ? static_cast<unsigned>(atoi(argv[1])) : defaultRounds;
    if (!StartShow())
    {
        return 1;
    }
    Torvane::Host agent;
    if (agent->library == nullptr)
    {
        Show("fail", "TVN_Agent_x86.dll is missing or has another version");
        return 1;
    }
    resumePlace.instructionPointer = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(resumed));
    TvnHostStartDefaultAgent(agent, nullptr, nullptr, nullptr);

    const bool isProtected = WaitForProtection();
    if (isProtected)
    {
        for (unsigned round = 1; round <= rounds; ++round)
        {
            Crash(round);
        }
    }
    else
    {
        Show("fail", "no Bridge that keeps this program alive");
    }
    TvnHostShutdown(agent);
    Show("host", "ends");
    return isProtected ? 0 : 1;
}
