/// \file
/// A program that counts, and has itself restarted in the middle: it saves its counter, lets the Agent hand over what
/// a new process needs, and goes on counting in that process.
///
/// It writes to the file `output` and keeps its counter in the file `counter`, both in its current folder, so that a
/// process that were started in another folder would not go on.

#include "Torvane/Agent.h"

#include <stdio.h>
#include <stdlib.h>

#include <windows.h>

namespace
{
constexpr unsigned restartAt = 5;
constexpr unsigned endAt = 10;
constexpr DWORD frameTime = 150; // milliseconds

FILE* output;
volatile LONG connection = -1;

template<typename Function>
Function Find(HMODULE library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

void TVN_CALL TakeStatus(void*, TvnConnectionStatus status)
{
    InterlockedExchange(&connection, status);
}

void PrintProcess()
{
    wchar_t folder[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, folder);
    const char* word = getenv("TORVANE_DEMO_WORD");
    fprintf(output, "host  process %lu\n", GetCurrentProcessId());
    fprintf(output, "own   command line  %ls\n", GetCommandLineW());
    fprintf(output, "own   folder        %ls\n", folder);
    fprintf(output, "own   environment   TORVANE_DEMO_WORD=%s\n", word == nullptr ? "" : word);
}

unsigned LoadCounter()
{
    unsigned counter = 0;
    if (FILE* file = fopen("counter", "r"))
    {
        if (fscanf(file, "%u", &counter) == 1)
        {
            fprintf(output, "host  found the counter at %u\n", counter);
        }
        fclose(file);
    }
    return counter;
}

void SaveCounter(unsigned counter)
{
    if (FILE* file = fopen("counter", "w"))
    {
        fprintf(file, "%u\n", counter);
        fclose(file);
    }
}

void SayGoodbye()
{
    fprintf(output, "host  exit handler: process %lu ends\n", GetCurrentProcessId());
    fclose(output);
}
} // namespace

int main()
{
    output = fopen("output", "a");
    if (output == nullptr)
    {
        return 1;
    }
    setvbuf(output, nullptr, _IONBF, 0);
    const HMODULE library = LoadLibraryW(L"TVN_Agent_x86.dll");
    const auto checkVersion = Find<decltype(&TvnCheckVersion)>(library, "TvnCheckVersion");
    if (checkVersion == nullptr || !checkVersion(TVN_VERSION))
    {
        fprintf(output, "!! TVN_Agent_x86.dll is missing or has another version\n");
        return 1;
    }
    atexit(SayGoodbye);
    PrintProcess();

    static TvnSynchronizedAgent agent;
    Find<decltype(&TvnStartupSynchronizedAgent)>(library, "TvnStartupSynchronizedAgent")(&agent, nullptr,
                                                                                         nullptr, nullptr);
    agent.TvnOnConnection(nullptr, &TakeStatus);

    unsigned counter = LoadCounter();
    while (counter < endAt)
    {
        Sleep(frameTime);
        if (connection > ConnectionSucceeded)
        {
            fprintf(output, "!! no connection to a Bridge, status %ld\n", connection);
            return 1;
        }
        fprintf(output, "line  counter %u\n", ++counter);
        if (counter == restartAt)
        {
            // [let itself be restarted]
            fprintf(output, "host  wants to be restarted\n");
            agent.TvnScheduleRestart(ThisProcessOnly); // the Broker can ask for it unbidden, too
            while (!agent.TvnWantsRestart())           // a game would go on with its frames
            {
                Sleep(1);
            }
            SaveCounter(counter);
            fprintf(output, "host  saved its counter and goes\n");
            agent.TvnRestart(TvnRestartExitWithCleanup, 0);
            // [end]
        }
    }
    Find<decltype(&TvnShutdown)>(library, "TvnShutdown")();
    fprintf(output, "host  done with counter %u\n", counter);
    return 0;
}
