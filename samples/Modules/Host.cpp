/// \file
/// A program of an executable and three libraries: World.dll, which it imports, Physics.dll, which World.dll imports,
/// and the plug-in Weather.dll, which it loads late and frees again. All of them may be changed, and nothing else.
///
/// Weather.dll is announced three times: by the automatic handling each time that it is loaded, and after the second time
/// also by a call that waits for the Broker, which the automatic handling doesn't.

#include "Torvane/Load.h"

#include "samples/Modules/World.h"

#include <stdio.h>
#include <wchar.h>

#include <windows.h>

namespace
{
constexpr DWORD connectLimit = 30000; // milliseconds

TvnHost agent;

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
/// \return false if there is no connection.
bool AnnounceModules()
{
    if (!TvnHostWaitForConnection(&agent, connectLimit))
    {
        return false;
    }
    // First the libraries that are still to come, and then those that are here: none is missed in between.
    TvnHostEnableAutomaticHandlingOfDynamicallyLoadedModules(&agent, nullptr, &IsOurs);

    wchar_t path[1024] = {};
    GetModuleFileNameW(nullptr, path, 1024);
    TvnHostEnableModule(&agent, path, IncludeImports, nullptr, &IsOurs); // waits for the Broker
    return true;
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
    const auto report =
        reinterpret_cast<int (*)()>(reinterpret_cast<void*>(GetProcAddress(weather, "ReportWeather")));
    printf("host  the plug-in says %d degrees\n", report());

    // While a library is freed, the OS may not know it by its name any more. Before that it does for sure.
    TvnHostDisableModule(&agent, L"Weather.dll", ExactlyTheseModules, nullptr, nullptr);
    FreeLibrary(weather);
}
// [end]

// [load late and wait]
void KeepPlugin()
{
    if (LoadLibraryW(L"Weather.dll") != nullptr)
    {
        TvnHostEnableModule(&agent, L"Weather.dll", ExactlyTheseModules, nullptr, nullptr);
        printf("host  the plug-in is loaded to stay, and announced\n");
    }
}
// [end]
} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IONBF, 0);
    FindOwnFolder();
    if (!TvnHostLoad(&agent, nullptr) || !TvnHostStartDefaultAgent(&agent, nullptr, nullptr, nullptr))
    {
        printf("!! %ls\n", agent.reason);
        return 1;
    }
    if (!AnnounceModules())
    {
        printf("!! no connection to a Bridge, status %ld\n", agent.status);
        return 1;
    }
    printf("host  the executable and its imports are announced\n");
    printf("host  a ball is at %d after 3 seconds\n", SimulateWorld(3));
    UsePlugin();
    KeepPlugin();
    TvnHostShutdown(&agent);
    printf("host  ended\n");
    return 0;
}
