// A host in C++ that loads the Agent at run time.

#include <Torvane/Agent.h>

#include <stdio.h>
#include <windows.h>

namespace
{
void TVN_CALL TakeStatus(void* context, TvnConnectionStatus status)
{
    printf("status %d\n", static_cast<int>(status));
    SetEvent(context);
}

template<typename Function>
Function Find(HMODULE library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}
} // namespace

int main()
{
    const HMODULE library = LoadLibraryW(L"TVN_Agent_x86.dll");
    const auto checkVersion = Find<decltype(&TvnCheckVersion)>(library, "TvnCheckVersion");
    if (checkVersion == nullptr || !checkVersion(TVN_VERSION))
    {
        return 1;
    }
    printf("version %s\n", Find<decltype(&TvnGetVersion)>(library, "TvnGetVersion")());
    static TvnSynchronizedAgent agent;
    Find<decltype(&TvnStartupSynchronizedAgent)>(library, "TvnStartupSynchronizedAgent")(&agent, nullptr,
                                                                                         nullptr, nullptr);
    const HANDLE known = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    agent.TvnOnConnection(known, &TakeStatus);
    WaitForSingleObject(known, INFINITE);
    Find<decltype(&TvnShutdown)>(library, "TvnShutdown")();
    printf("done\n");
    return 0;
}
