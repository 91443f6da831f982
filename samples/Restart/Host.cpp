/// \file
/// A program that counts and requests its restart: it saves its counter, the Agent reports what a new process needs, and
/// that process continues to count.
///
/// It writes to the file `output` and keeps its counter in the file `counter`, both in its current folder: a process that
/// is started in another folder doesn't find them.

#include "Torvane/Load.h"

#include <stdio.h>
#include <stdlib.h>

#include <windows.h>

namespace
{
constexpr unsigned restartAt = 5;
constexpr unsigned endAt = 10;
constexpr DWORD frameTime = 150;      // milliseconds
constexpr DWORD connectLimit = 30000; // milliseconds

FILE* output;
TvnHost agent;

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
    if (!TvnHostLoad(&agent, nullptr))
    {
        fprintf(output, "!! %ls\n", agent.reason);
        return 1;
    }
    atexit(SayGoodbye);
    PrintProcess();

    TvnHostStartSynchronizedAgent(&agent, nullptr, nullptr, nullptr);
    if (!TvnHostWaitForConnection(&agent, connectLimit))
    {
        fprintf(output, "!! no connection to a Bridge, status %ld\n", agent.status);
        return 1;
    }

    unsigned counter = LoadCounter();
    unsigned frames = 0; // isn't saved: the next process has its own
    while (counter < endAt)
    {
        Sleep(frameTime);
        fprintf(output, "line  counter %u, frame %u of this process\n", ++counter, ++frames);
        if (counter == restartAt)
        {
            // [request a restart]
            fprintf(output, "host  requests its restart\n");
            TvnHostScheduleRestart(&agent, ThisProcessOnly); // the Broker can also request one by itself
            while (!TvnHostWantsRestart(&agent))             // a game would continue with its frames
            {
                Sleep(1);
            }
            SaveCounter(counter);
            fprintf(output, "host  has saved its counter and ends\n");
            TvnHostRestart(&agent, TvnRestartExitWithCleanup, 0);
            // [end]
        }
    }
    TvnHostShutdown(&agent);
    fprintf(output, "host  done with counter %u\n", counter);
    return 0;
}
