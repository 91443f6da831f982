/// \file
/// A loop of 60 frames a second that accepts a reload between two frames and measures its effect on them.
///
/// It requests the reload itself, and continues with its frames until the patch is ready.

#include "Torvane/Load.h"

#include "samples/FrameLoop/FrameTimes.h"
#include "samples/FrameLoop/Motion.h"

#include <stdio.h>

#include <windows.h>

using namespace Torvane::Sample;

extern "C"
{
/// Frames so far. The Bridge reads it: its fake compiler takes as long as a number of frames.
__declspec(dllexport) volatile unsigned frameNumber = 0;

/// Why there was no reload; the Bridge writes it, the first character last.
__declspec(dllexport) volatile char reloadFailure[256] = "";
}

namespace
{
constexpr double frameTime = 1000.0 / 60;    // milliseconds
constexpr unsigned framesBefore = 60;        // measured before the reload is requested
constexpr unsigned framesAfter = 60;         // after the reload
constexpr unsigned mostFrames = 60 * 60 * 2; // the host ends then without a reload

// [start a synchronized agent]
TvnHost agent;

bool StartAgent()
{
    return TvnHostLoad(&agent, nullptr) && TvnHostStartSynchronizedAgent(&agent, nullptr, nullptr, nullptr);
}
// [end]

// [announce the executable]
/// Waits for the Bridge, or until the connection has failed.
void AnnounceExecutable()
{
    wchar_t path[1024] = {};
    GetModuleFileNameW(nullptr, path, 1024);
    TvnHostEnableModule(&agent, path, ExactlyTheseModules, nullptr, nullptr);
}
// [end]

// [poll between two frames]
/// \return whether the frame was reloaded.
bool AcceptReload()
{
    if (!TvnHostWantsReload(&agent, SyncBeforeLoad)) // one call for each frame; it doesn't wait
    {
        return false;
    }
    // Nothing of a frame is in progress here: no job, no iterator, no lock.
    TvnHostReload(&agent, WaitUntilFinished);
    return true;
}
// [end]

enum class Phase
{
    Before,
    PatchIsCompiled,
    After
};

/// \return whether there was one reload, and the frame has changed.
bool RunFrames()
{
    const int oldMove = Advance(0);
    Phase phase = Phase::Before;
    FrameTimes before;
    FrameTimes meanwhile;
    FrameTimes reload;
    FrameTimes after;
    FrameClock clock(frameTime);
    int position = 0;
    while (after.count < framesAfter && frameNumber < mostFrames && reloadFailure[0] == '\0')
    {
        position = Advance(position);
        ++frameNumber;

        const bool reloaded = AcceptReload();
        const double time = clock.EndFrame();
        if (reloaded)
        {
            if (Advance(0) != oldMove)
            {
                printf("host  frame %u: reloaded\n", frameNumber);
            }
            reload.Add(time);
            phase = Phase::After;
        }
        else
        {
            FrameTimes& times = phase == Phase::Before            ? before
                                : phase == Phase::PatchIsCompiled ? meanwhile
                                                                  : after;
            times.Add(time);
        }
        if (phase == Phase::Before && before.count == framesBefore)
        {
            printf("host  frame %u: requests a reload, a frame moves by %d\n", frameNumber, Advance(0));
            TvnHostScheduleReload(&agent);
            phase = Phase::PatchIsCompiled;
        }
    }
    if (reloadFailure[0] != '\0')
    {
        printf("!! the reload has failed: %s\n", const_cast<const char*>(reloadFailure));
        return false;
    }
    before.Print("before the reload");
    meanwhile.Print("while the patch compiles");
    reload.Print("the reloaded frame");
    after.Print("after the reload");
    printf("host  a frame moves by %d\n", Advance(0));
    return reload.count == 1 && Advance(0) != oldMove;
}
} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IONBF, 0);
    if (!StartAgent())
    {
        printf("!! %ls\n", agent.reason);
        return 1;
    }
    AnnounceExecutable();
    bool success = TvnHostIsConnected(&agent);
    if (success)
    {
        printf("host  connected, and the executable is announced\n");
        success = RunFrames();
    }
    else
    {
        printf("!! no connection to a Bridge, status %ld\n", agent.status);
    }
    // [shut down]
    TvnHostShutdown(&agent); // no other thread calls the Agent any more
    // [end]
    printf("host  ended\n");
    return success ? 0 : 1;
}
