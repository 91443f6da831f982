#include "Company.h"

#include "Agent/Protocol/Names.h"
#include "Life.h"

#include "tests/Support/Modules.h"

#include <string.h>

#include <aclapi.h>
#include <process.h>

namespace Torvane::Faults
{
namespace
{
constexpr DWORD readyLimit = 20000; // milliseconds
constexpr uint32_t denied = 1;      ///< as a parameter: nobody else gets access

std::wstring ReadyName(uint32_t hostProcessId)
{
    return L"TVN_FaultsReady" + std::to_wstring(hostProcessId);
}

SECURITY_ATTRIBUTES* SecurityFor(uint32_t parameter)
{
    static ACL nobody;
    static SECURITY_DESCRIPTOR descriptor;
    static SECURITY_ATTRIBUTES attributes = {sizeof(attributes), &descriptor, FALSE};
    InitializeAcl(&nobody, sizeof(nobody), ACL_REVISION);
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, &nobody, FALSE);
    return parameter == denied ? &attributes : nullptr;
}

void HoldEvent(const Company&, const std::wstring& name)
{
    CreateEventW(nullptr, TRUE, FALSE, name.c_str());
}

void HoldSemaphore(const Company&, const std::wstring& name)
{
    CreateSemaphoreW(nullptr, 0, 1, name.c_str());
}

void HoldTimer(const Company&, const std::wstring& name)
{
    CreateWaitableTimerW(nullptr, TRUE, name.c_str());
}

void HoldMutex(const Company& company, const std::wstring& name)
{
    CreateMutexW(SecurityFor(company.parameter), FALSE, name.c_str());
}

void OwnMutex(const Company&, const std::wstring& name)
{
    CreateMutexW(nullptr, TRUE, name.c_str());
}

void Start(unsigned(__stdcall* body)(void*))
{
    CloseHandle(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, body, nullptr, 0, nullptr)));
}

unsigned __stdcall DieSoon(void*)
{
    Sleep(1000); // the Agent waits by then
    TerminateProcess(GetCurrentProcess(), 0);
    return 0;
}

void AbandonMutex(const Company&, const std::wstring& name)
{
    CreateMutexW(nullptr, TRUE, name.c_str());
    Start(&DieSoon);
}

void HoldSection(const Company& company, const std::wstring& name)
{
    CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, company.parameter, name.c_str());
}

void HoldReadOnlySection(const Company& company, const std::wstring& name)
{
    CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READONLY, 0, company.parameter, name.c_str());
}

void HoldDeniedSection(const Company& company, const std::wstring& name)
{
    CreateFileMappingW(INVALID_HANDLE_VALUE, SecurityFor(denied), PAGE_READWRITE, 0, company.parameter,
                       name.c_str());
}

/// \param type as for `CreateNamedPipeW`; \param instances likewise.
void HoldPipe(const std::wstring& name, DWORD access, DWORD type, DWORD instances)
{
    CreateNamedPipeW(name.c_str(), access, type, instances, 0x1000, 0x1000, 0, nullptr);
}

void HoldOnlyPipe(const Company&, const std::wstring& name)
{
    HoldPipe(name, PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1);
}

void HoldFirstPipe(const Company&, const std::wstring& name)
{
    HoldPipe(name, PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE,
             PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, PIPE_UNLIMITED_INSTANCES);
}

void HoldBytePipe(const Company&, const std::wstring& name)
{
    HoldPipe(name, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, PIPE_UNLIMITED_INSTANCES);
}

void HoldInboundPipe(const Company&, const std::wstring& name)
{
    HoldPipe(name, PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE, PIPE_UNLIMITED_INSTANCES);
}

/// What a client in the Bridge's place does once it is connected.
enum ClientAct : uint32_t
{
    StaySilent,
    CloseAtOnce,
    WriteGarbage,
    WriteHalfHeader,
    WriteHalfMessage,
};

void Act(HANDLE pipe, uint32_t act)
{
    uint8_t bytes[64] = {10, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, '2', '.'}; // the begin of a version
    DWORD size = act == WriteHalfHeader ? 4 : act == WriteHalfMessage ? 14 : sizeof(bytes);
    if (act == WriteGarbage)
    {
        memset(bytes, 0x3F, sizeof(bytes));
    }
    if (act >= WriteGarbage)
    {
        WriteFile(pipe, bytes, size, &size, nullptr);
    }
    else if (act == CloseAtOnce)
    {
        CloseHandle(pipe);
    }
}

Company taken;
std::wstring takenName;

unsigned __stdcall ConnectAndAct(void*)
{
    HANDLE pipe = INVALID_HANDLE_VALUE;
    while (pipe == INVALID_HANDLE_VALUE)
    {
        Sleep(0);
        pipe = CreateFileW(takenName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                           nullptr);
    }
    Act(pipe, taken.parameter);
    return 0;
}

/// Connects to the pipe before the Bridge can.
void TakePlace(const Company& company, const std::wstring& name)
{
    taken = company;
    takenName = name;
    Start(&ConnectAndAct);
}

#define TORVANE_SECTION(words, prefix, size)                                                              \
    {words " is an event", HoldEvent, prefix, 0, ""},                                                     \
        {words " is a semaphore", HoldSemaphore, prefix, 0, ""},                                          \
        {words " is a timer", HoldTimer, prefix, 0, ""}, {words " is a mutex", HoldMutex, prefix, 0, ""}, \
        {words " is smaller", HoldSection, prefix, 64, ""},                                               \
        {words " has its size already", HoldSection, prefix, size, ""},                                   \
        {words " is larger", HoldSection, prefix, 4 * size, ""},                                          \
        {words " is read-only", HoldReadOnlySection, prefix, size, ""},                                   \
    {                                                                                                     \
        words " denies access", HoldDeniedSection, prefix, size, ""                                       \
    }

#define TORVANE_MUTEX(words, prefix)                                                                         \
    {words " is an event", HoldEvent, prefix, 0, ""},                                                        \
        {words " is a semaphore", HoldSemaphore, prefix, 0, ""},                                             \
        {words " is a timer", HoldTimer, prefix, 0, ""},                                                     \
        {words " is a section", HoldSection, prefix, 4096, ""}, {words " exists", HoldMutex, prefix, 0, ""}, \
        {words " is owned all the time", OwnMutex, prefix, 0, ""},                                           \
        {words " is owned by a process that dies", AbandonMutex, prefix, 0, ""},                             \
    {                                                                                                        \
        words " denies access", HoldMutex, prefix, denied, ""                                                \
    }

#define TORVANE_PIPE(words, prefix)                                                                \
    {words " exists, one instance at most", HoldOnlyPipe, prefix, 0, ""},                          \
        {words " exists, first instance", HoldFirstPipe, prefix, 0, ""},                           \
        {words " exists, bytes instead of messages", HoldBytePipe, prefix, 0, ""},                 \
        {words " exists, inbound", HoldInboundPipe, prefix, 0, ""},                                \
        {words " has a client that stays silent", TakePlace, prefix, StaySilent, ""},              \
        {words " has a client that goes at once", TakePlace, prefix, CloseAtOnce, ""},             \
        {words " has a client that writes garbage", TakePlace, prefix, WriteGarbage, ""},          \
        {words " has a client that writes half a header", TakePlace, prefix, WriteHalfHeader, ""}, \
    {                                                                                              \
        words " has a client that writes half a message", TakePlace, prefix, WriteHalfMessage, ""  \
    }

#define TORVANE_BRIDGE(behaviour)                           \
    {                                                       \
        "Bridge " behaviour, nullptr, nullptr, 0, behaviour \
    }

constexpr Company companies[] = {
    TORVANE_SECTION("agent-bridge section", agentBridgeSectionPrefix, agentBridgeSectionSize),
    TORVANE_MUTEX("agent-bridge mutex", agentBridgeMutexPrefix),
    TORVANE_SECTION("heartbeat section", heartbeatSectionPrefix, heartbeatSectionSize),
    TORVANE_MUTEX("heartbeat mutex", heartbeatMutexPrefix),
    TORVANE_PIPE("agent pipe", agentPipePrefix),
    TORVANE_PIPE("bridge pipe", bridgePipePrefix),
    TORVANE_BRIDGE("stops reading"),
    TORVANE_BRIDGE("stops reading before the shutdown"),
    TORVANE_BRIDGE("ends in a header"),
    TORVANE_BRIDGE("ends in a message"),
    TORVANE_BRIDGE("sends garbage"),
    TORVANE_BRIDGE("answers late"),
    TORVANE_BRIDGE("installs its handler twice"),
    TORVANE_BRIDGE("acknowledges twice"),
    TORVANE_BRIDGE("allows a restart twice"),
    TORVANE_BRIDGE("answers exceptions twice"),
    TORVANE_BRIDGE("acknowledges another's modules"),
    TORVANE_BRIDGE("allows another's restart"),
    TORVANE_BRIDGE("answers another's exception"),
};
} // namespace

const Company* FindCompany(const std::string& name)
{
    for (const Company& company : companies)
    {
        if (name == company.name)
        {
            return &company;
        }
    }
    return nullptr;
}

void PrintCompany()
{
    for (const Company& company : companies)
    {
        Say("%s", company.name);
    }
}

void InviteCompany(const Company& company)
{
    const DWORD host = GetCurrentProcessId();
    const HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, ReadyName(host).c_str());
    const std::string name = company.name;
    const std::wstring program = Testing::ProgramPath();
    std::wstring commandLine = L"\"" + program + L"\" foreign \"" + std::wstring(name.begin(), name.end()) +
                               L"\" " + std::to_wstring(host);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &process) ||
        WaitForSingleObject(ready, readyLimit) != WAIT_OBJECT_0)
    {
        Say("state no company");
    }
    for (const HANDLE handle : {process.hProcess, process.hThread, ready})
    {
        CloseHandle(handle);
    }
}

int KeepCompany(const Company& company, uint32_t hostProcessId)
{
    company.hold(company, company.prefix + std::to_wstring(hostProcessId));
    SetEvent(OpenEventW(EVENT_MODIFY_STATE, FALSE, ReadyName(hostProcessId).c_str()));
    WaitForSingleObject(OpenProcess(SYNCHRONIZE, FALSE, hostProcessId), INFINITE);
    return 0;
}
} // namespace Torvane::Faults
