#include "HostAgent.h"

#include "../Support/Pipe.h"

namespace Torvane::Benchmarks
{
namespace
{
void TVN_CALL OnConnection(void* connected, TvnConnectionStatus status)
{
    if (status != ConnectionSucceeded)
    {
        Fail("The Agent has found no Bridge");
    }
    SetEvent(connected);
}

template<typename Function>
Function* Resolve(HMODULE library, const char* name)
{
    Function* function = reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    if (function == nullptr)
    {
        Fail(name);
    }
    return function;
}
} // namespace

HostAgent::HostAgent()
    : library(nullptr)
    , calls()
    , synchronizedCalls()
    , connected(CreateEventW(nullptr, FALSE, FALSE, nullptr))
{
}

HostAgent::~HostAgent()
{
    CloseHandle(connected);
}

std::wstring HostAgent::Folder()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder = path;
    folder.resize(folder.find_last_of(L'\\'));
    return folder + L"\\agent\\x86\\";
}

void HostAgent::Load()
{
    library = LoadLibraryW((Folder() + L"TVN_Agent_x86.dll").c_str());
    if (library == nullptr)
    {
        Fail("The Agent isn't in agent\\x86");
    }
}

void HostAgent::Start()
{
    Resolve<decltype(TvnStartupDefaultAgent)>(library, "TvnStartupDefaultAgent")(&calls, nullptr, nullptr,
                                                                                 nullptr);
}

void HostAgent::StartSynchronized()
{
    Resolve<decltype(TvnStartupSynchronizedAgent)>(library, "TvnStartupSynchronizedAgent")(
        &synchronizedCalls, nullptr, nullptr, nullptr);
    calls.TvnOnConnection = synchronizedCalls.TvnOnConnection;
}

void HostAgent::WaitForConnection()
{
    calls.TvnOnConnection(connected, OnConnection);
    WaitForSingleObject(connected, INFINITE);
}

void HostAgent::Shutdown()
{
    Resolve<decltype(TvnShutdown)>(library, "TvnShutdown")();
}

void HostAgent::Unload()
{
    FreeLibrary(library);
    library = nullptr;
}
} // namespace Torvane::Benchmarks
