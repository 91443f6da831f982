/// \file
/// A program of an executable and three libraries: World.dll, which it imports, Physics.dll, which World.dll imports,
/// and the plug-in Weather.dll, which it loads late and frees again. All of them may be changed, and nothing else.

#include "samples/Common/AgentLibrary.h"
#include "samples/Modules/World.h"

#include <stdio.h>
#include <wchar.h>

#include <windows.h>

using namespace Torvane::Sample;

namespace
{
HMODULE library;
TvnDefaultAgent agent;
volatile LONG connection = -1;

void TVN_CALL TakeStatus(void*, TvnConnectionStatus status)
{
    InterlockedExchange(&connection, status);
}

bool StartAgent()
{
    library = LoadAgent();
    if (library == nullptr)
    {
        return false;
    }
    Find<decltype(&TvnStartupDefaultAgent)>(library, "TvnStartupDefaultAgent")(&agent, nullptr, nullptr,
                                                                               nullptr);
    agent.TvnOnConnection(nullptr, &TakeStatus);
    return true;
}

// [choose modules by their folder]
wchar_t ownFolder[1024];

void FindOwnFolder()
{
    GetModuleFileNameW(nullptr, ownFolder, 1024);
    wcsrchr(ownFolder, L'\\')[1] = L'\0';
}

/// Accepts the modules in this program's folder, so none of the OS, but not the Agent's own library. Also runs inside the
/// loader, so it loads nothing and acquires no lock.
bool TVN_CALL IsOurs(void*, const wchar_t* path)
{
    return _wcsnicmp(path, ownFolder, wcslen(ownFolder)) == 0 &&
           wcsstr(path, L"TVN_Agent_x86.dll") == nullptr;
}
// [end]

// [announce all modules]
void AnnounceModules()
{
    // First the libraries that are still to come, and then those that are here: none is missed in between.
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, &IsOurs);

    wchar_t path[1024] = {};
    GetModuleFileNameW(nullptr, path, 1024);
    agent.TvnEnableModule(path, IncludeImports, nullptr, &IsOurs); // waits for the Broker
}
// [end]

// [load late and free]
void UsePlugin()
{
    // The automatic handling announces it, and doesn't wait for the Broker: a change may come some time later.
    const HMODULE weather = LoadLibraryW(L"Weather.dll");
    if (weather == nullptr)
    {
        return;
    }
    printf("host  the plug-in says %d degrees\n", Find<int (*)()>(weather, "ReportWeather")());

    // While a library is freed, the OS may not know it by its name any more. Before that it does for sure.
    agent.TvnDisableModule(L"Weather.dll", ExactlyTheseModules, nullptr, nullptr);
    FreeLibrary(weather);
}
// [end]

// [load late and wait]
void KeepPlugin()
{
    if (LoadLibraryW(L"Weather.dll") != nullptr)
    {
        agent.TvnEnableModule(L"Weather.dll", ExactlyTheseModules, nullptr, nullptr);
        printf("host  the plug-in is loaded to stay, and announced\n");
    }
}
// [end]
} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IONBF, 0);
    FindOwnFolder();
    if (!StartAgent())
    {
        printf("!! TVN_Agent_x86.dll is missing or has another version\n");
        return 1;
    }
    AnnounceModules();
    if (connection != ConnectionSucceeded)
    {
        printf("!! no connection to a Bridge, status %ld\n", connection);
        return 1;
    }
    printf("host  the executable and its imports are announced\n");
    printf("host  a ball is at %d after 3 seconds\n", SimulateWorld(3));
    UsePlugin();
    KeepPlugin();
    Find<decltype(&TvnShutdown)>(library, "TvnShutdown")();
    printf("host  ended\n");
    return 0;
}
