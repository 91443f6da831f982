/// \file
/// A console program that prints a line with a counter several times a second while its code is changed. It ends when
/// its standard input does.
///
///     LiveReload          a reload happens whenever the Bridge requests it
///     LiveReload --sync   a reload waits for the main loop, which accepts it between two frames

#include "Torvane/Load.h"

#include "samples/LiveReload/Line.h"
#include "samples/LiveReload/Output.h"

#include <string.h>

#include <windows.h>

namespace
{
constexpr DWORD frameTime = 200; // milliseconds

void TVN_CALL PrintStatus(void*, TvnConnectionStatus status)
{
    if (status == ConnectionSucceeded)
    {
        PrintLine("host", "connected to the Bridge");
    }
    else
    {
        PrintLine("host", "no connection to a Bridge, status ", static_cast<unsigned>(status));
    }
}

/// Enables reloads of this program and all that it imports. Waits for the Bridge, or until the connection has failed.
void AnnounceModule(TvnHost* agent)
{
    wchar_t path[1024] = {};
    GetModuleFileNameW(nullptr, path, 1024);
    TvnHostEnableModule(agent, path, IncludeImports, nullptr, nullptr);
    PrintLine("host", "this program and its imports are announced");
}

// ---- Hooks: called by the Agent's receiver thread while the other threads are suspended ----

struct HookId
{
    unsigned char empty;
};

// [reload hooks]
using ReloadHook = void (*)(HookId id, const char* text, unsigned number);

void BeforeReload(HookId, const char* text, unsigned number)
{
    PrintLine("hook", "before reload ", number);
    PrintLine("hook", text);
}

void AfterReload(HookId, const char*, unsigned number)
{
    PrintLine("hook", "after reload ", number);
}
} // namespace

extern "C" __declspec(dllexport) const ReloadHook beforeReloadHooks[] = {&BeforeReload, nullptr};
extern "C" __declspec(dllexport) const ReloadHook afterReloadHooks[] = {&AfterReload, nullptr};
// [end]

namespace
{
DWORD WINAPI WaitForEndOfInput(void* end)
{
    char ignored[64];
    DWORD count = 0;
    while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), ignored, sizeof(ignored), &count, nullptr) && count != 0)
    {
    }
    SetEvent(end);
    return 0;
}

/// Accepts a reload between two frames. The loop runs while a patch is compiled and waits while it is loaded.
void AcceptReload(TvnHost* agent, unsigned frame)
{
    if (TvnHostWantsReload(agent, SyncBeforeLoad))
    {
        PrintLine("host", "a patch is ready: accepted after frame ", frame);
        TvnHostReload(agent, WaitUntilFinished);
        PrintLine("host", "the reload is over: continues with frame ", frame + 1);
    }
}
} // namespace

int main(int argc, char** argv)
{
    const bool synchronized = argc > 1 && strcmp(argv[1], "--sync") == 0;
    static TvnHost agent;
    if (!TvnHostLoad(&agent, nullptr))
    {
        PrintLine("host", "TVN_Agent_x86.dll is missing or has another version");
        return 1;
    }
    const auto start = synchronized ? &TvnHostStartSynchronizedAgent : &TvnHostStartDefaultAgent;
    start(&agent, nullptr, nullptr, nullptr);
    TvnHostOnConnection(&agent, nullptr, &PrintStatus);
    AnnounceModule(&agent);

    const HANDLE end = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE input = CreateThread(nullptr, 0, &WaitForEndOfInput, end, 0, nullptr);

    unsigned counter = 0; // kept by every reload
    do
    {
        char text[128];
        FormatLine(text, sizeof(text), ++counter);
        PrintLine("line", text);
        if (synchronized)
        {
            AcceptReload(&agent, counter);
        }
    }
    while (WaitForSingleObject(end, frameTime) == WAIT_TIMEOUT);

    TvnHostShutdown(&agent);
    WaitForSingleObject(input, INFINITE);
    CloseHandle(input);
    CloseHandle(end);
    PrintLine("host", "ended with counter ", counter);
    return 0;
}
