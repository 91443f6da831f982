/// \file
/// A program that counts and requests its restart: it saves its counter, the Agent reports what a new process needs, and
/// that process continues to count.
///
/// It writes to the file `output` and keeps its counter in the file `counter`, both in its current folder: a process that
/// is started in another folder doesn't find them.

#include "samples/Common/AgentLibrary.h"

#include <stdio.h>
#include <stdlib.h>

#include <windows.h>

using namespace Torvane::Sample;

namespace
{
constexpr unsigned restartAt = 5;
constexpr unsigned endAt = 10;
constexpr DWORD frameTime = 150; // milliseconds

FILE* output;
volatile LONG connection = -1;

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
    const HMODULE library = LoadAgent();
    if (library == nullptr)
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
            // [request a restart]
            fprintf(output, "host  requests its restart\n");
            agent.TvnScheduleRestart(ThisProcessOnly); // the Broker can also request one by itself
            while (!agent.TvnWantsRestart())           // a game would continue with its frames
            {
                Sleep(1);
            }
            SaveCounter(counter);
            fprintf(output, "host  has saved its counter and ends\n");
            agent.TvnRestart(TvnRestartExitWithCleanup, 0);
            // [end]
        }
    }
    Find<decltype(&TvnShutdown)>(library, "TvnShutdown")();
    fprintf(output, "host  done with counter %u\n", counter);
    return 0;
}
