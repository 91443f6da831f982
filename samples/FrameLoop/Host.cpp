/// \file
/// A loop of 60 frames a second that lets reloads in between two frames, and measures what that does to its frames.
///
/// It asks for the reload itself, as for a key that was pressed, and goes on with its frames until a patch is there.

#include "Torvane/Agent.h"

#include "samples/FrameLoop/FrameTimes.h"
#include "samples/FrameLoop/Motion.h"

#include <stdio.h>

#include <windows.h>

using namespace Torvane::Sample;

/// Frames so far. The Bridge reads it: its stand-in for a compiler takes as long as so many frames.
extern "C" __declspec(dllexport) volatile unsigned frameNumber = 0;

namespace
{
constexpr double frameTime = 1000.0 / 60;    // milliseconds
constexpr unsigned framesBefore = 60;        // that are measured before the reload is asked for
constexpr unsigned framesAfter = 60;         // behind the reload
constexpr unsigned mostFrames = 60 * 60 * 2; // a host that waits for nothing gives up then

HMODULE library;
TvnSynchronizedAgent agent;
volatile LONG connection = -1;

template<typename Function>
Function Find(const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

// [learn of the connection]
void TVN_CALL TakeStatus(void* context, TvnConnectionStatus status)
{
    InterlockedExchange(static_cast<volatile LONG*>(context), status); // no more than that: a lock is held
}
// [end]

// [start a synchronized agent]
bool StartAgent()
{
    library = LoadLibraryW(L"TVN_Agent_x86.dll");
    const auto checkVersion = Find<decltype(&TvnCheckVersion)>("TvnCheckVersion");
    if (checkVersion == nullptr || !checkVersion(TVN_VERSION))
    {
        return false; // the program goes on without reloads
    }
    Find<decltype(&TvnStartupSynchronizedAgent)>("TvnStartupSynchronizedAgent")(&agent, nullptr, nullptr,
                                                                                nullptr);
    agent.TvnOnConnection(const_cast<LONG*>(&connection), &TakeStatus);
    return true;
}
// [end]

// [announce the executable]
/// Waits for the Bridge, or until there will be none.
void AnnounceExecutable()
{
    wchar_t path[1024] = {};
    GetModuleFileNameW(nullptr, path, 1024);
    agent.TvnEnableModule(path, ExactlyTheseModules, nullptr, nullptr);
}
// [end]

// [poll between two frames]
/// \return whether a reload has come in.
bool LetReloadIn()
{
    if (!agent.TvnWantsReload(SyncBeforeLoad)) // one call for each frame; it doesn't wait
    {
        return false;
    }
    // Here nothing of the frame is under way: no job, no iterator, no lock.
    agent.TvnReload(WaitUntilFinished);
    return true;
}
// [end]

enum class Phase
{
    Before,
    PatchIsMade,
    After
};

/// \return whether the reload has come.
bool RunFrames()
{
    Phase phase = Phase::Before;
    FrameTimes before;
    FrameTimes meanwhile;
    FrameTimes reload;
    FrameTimes after;
    FrameClock clock(frameTime);
    int position = 0;
    while (after.count < framesAfter && frameNumber < mostFrames)
    {
        position = Advance(position);
        ++frameNumber;

        const bool reloaded = LetReloadIn();
        const double time = clock.EndFrame();
        if (reloaded)
        {
            printf("host  frame %u: the reload is in\n", frameNumber);
            reload.Add(time);
            phase = Phase::After;
        }
        else
        {
            FrameTimes& times = phase == Phase::Before        ? before
                                : phase == Phase::PatchIsMade ? meanwhile
                                                              : after;
            times.Add(time);
        }
        if (phase == Phase::Before && before.count == framesBefore)
        {
            printf("host  frame %u: asks for a reload, a frame moves by %d\n", frameNumber, Advance(0));
            agent.TvnScheduleReload();
            phase = Phase::PatchIsMade;
        }
    }
    before.Print("before the reload");
    meanwhile.Print("while the patch is made");
    reload.Print("the frame that lets it in");
    after.Print("behind the reload");
    printf("host  a frame moves by %d\n", Advance(0));
    return reload.count == 1;
}
} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IONBF, 0);
    if (!StartAgent())
    {
        printf("!! TVN_Agent_x86.dll is missing or has another version\n");
        return 1;
    }
    AnnounceExecutable();
    bool success = connection == ConnectionSucceeded;
    if (success)
    {
        printf("host  connected, and the executable is announced\n");
        success = RunFrames();
    }
    else
    {
        printf("!! no connection to a Bridge, status %ld\n", connection);
    }
    // [shut down]
    Find<decltype(&TvnShutdown)>("TvnShutdown")(); // no other thread calls the Agent any more
    // [end]
    printf("host  ended\n");
    return success ? 0 : 1;
}
