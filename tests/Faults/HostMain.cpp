// A host of the fault campaigns. It lives once with an Agent, of whose calls one fails, and reports what it saw:
//
//   FaultsHost whole|restart [FUNCTION CALL]   lives
//   FaultsHost company NAME                    lives in bad company
//   FaultsHost damage NAME                     lives, and does itself that damage
//   FaultsHost companies                       prints the names of bad company
//   FaultsHost check                           compares the table of functions with the library's imports
//   FaultsHost functions                       prints the table
#include "Company.h"
#include "Functions.h"
#include "Interposition.h"
#include "Life.h"

#include "tests/Support/Modules.h"

#include <stdlib.h>

#include <process.h>

namespace
{
using namespace Torvane::Faults;

constexpr UINT livedExitCode = 42;
constexpr UINT crashedExitCode = 87;
constexpr UINT hangingExitCode = 88;
constexpr DWORD callLimit = 5000;        ///< milliseconds for a phase, before its Bridge is taken away
constexpr DWORD connectionLimit = 50000; ///< while the Agent still connects
constexpr DWORD releaseLimit = 2000;     ///< after that

HMODULE agent = nullptr;
Life* life = nullptr;

bool IsInAgent(uint32_t address)
{
    return address - reinterpret_cast<uintptr_t>(agent) <
           Torvane::Testing::ImageHeaders(agent).OptionalHeader.SizeOfImage;
}

void SayFrames(const char* what, const uint32_t* frames, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i)
    {
        if (IsInAgent(frames[i]))
        {
            Say("%s agent+0x%X", what, static_cast<unsigned>(frames[i] - reinterpret_cast<uintptr_t>(agent)));
        }
    }
}

void ReportFailure(const uint32_t (&frames)[Interposition::frameCount])
{
    Say("fired in %s", life->phase);
    SayFrames("failed", frames, Interposition::frameCount);
}

/// Whether the Agent has a frame on this thread's stack that takes the exception.
bool IsCaughtByAgent()
{
    const auto* frame = reinterpret_cast<const EXCEPTION_REGISTRATION_RECORD*>(__readfsdword(0));
    return IsInAgent(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(frame->Handler)));
}

bool IsCrash(const EXCEPTION_RECORD& record)
{
    return (record.ExceptionCode & 0xF0000000) == 0xC0000000 && !Life::IsOnPurpose(record) &&
           !IsCaughtByAgent();
}

LONG CALLBACK ReportCrash(EXCEPTION_POINTERS* exception)
{
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (!IsCrash(record))
    {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    Say("crash 0x%08lX at 0x%p in %s", record.ExceptionCode, record.ExceptionAddress, life->phase);
    uint32_t frames[8] = {exception->ContextRecord->Eip};
    Interposition::CollectFrames(exception->ContextRecord->Ebp, frames + 1, 7);
    SayFrames("crashed", frames, 8);
    TerminateProcess(GetCurrentProcess(), crashedExitCode);
    return EXCEPTION_CONTINUE_SEARCH;
}

unsigned __stdcall RunLife(void*)
{
    life->Run();
    return 0;
}

/// \return the Agent's message box of this process, if it is open. Others can have theirs on the same desktop.
HWND FindMessageBox()
{
    HWND box = nullptr;
    DWORD process = 0;
    do
    {
        box = FindWindowExA(nullptr, box, "#32770", "Torvane Agent");
        GetWindowThreadProcessId(box, &process);
    }
    while (box != nullptr && process != GetCurrentProcessId());
    return box;
}

/// Closes the message box of a failed startup, as a user does.
void CloseMessageBox()
{
    if (Interposition::Count("MessageBoxA") != 0)
    {
        PostMessageA(FindMessageBox(), WM_CLOSE, 0, 0);
    }
}

/// \return whether the life has come to its end.
bool Watch(Board& board)
{
    bool released = false;
    while (!life->ended)
    {
        Sleep(5);
        CloseMessageBox();
        const bool connects = strcmp(life->phase, "startup") == 0 || strcmp(life->phase, "connection") == 0;
        const DWORD limit = connects ? connectionLimit : callLimit;
        const DWORD elapsed = GetTickCount() - life->phaseStart;
        if (elapsed > limit && !released)
        {
            released = true;
            board->leave = 1;
            Say("blocked %s", life->phase);
        }
        if (released && elapsed > limit + releaseLimit)
        {
            Say("hang %s", life->phase);
            return false;
        }
    }
    return true;
}

void ReportCounts()
{
    Interposition::ForEachCount(
        [](const std::string& function, uint32_t calls) { Say("count %u %s", calls, function.c_str()); });
}

int Live(LifeKind kind, const char* function, uint32_t call, const Company* company = nullptr,
         const char* damage = "")
{
    Board board(GetCurrentProcessId());
    if (company != nullptr)
    {
        strcpy(board->bridge, company->bridge);
    }
    if (company != nullptr && company->hold != nullptr)
    {
        InviteCompany(*company);
    }
    HostState state(agent);
    Interposition::Install(agent, function, call, &ReportFailure);
    life = new Life(kind, agent, board);
    life->Suffer(damage);
    AddVectoredExceptionHandler(1, &ReportCrash);
    Say("process %lu", GetCurrentProcessId());
    _beginthreadex(nullptr, 0, &RunLife, nullptr, 0, nullptr);
    const bool ended = Watch(board);
    ReportCounts();
    if (!ended)
    {
        TerminateProcess(GetCurrentProcess(), hangingExitCode);
    }
    const std::string missing = Interposition::CompareTable(agent);
    if (!missing.empty())
    {
        Say("state %s", missing.c_str());
    }
    state.Compare([](const std::string& difference) { Say("state %s", difference.c_str()); });
    if (FindMessageBox() != nullptr)
    {
        Say("state message box still open");
    }
    board->leave = 1;
    Say("end");
    return livedExitCode;
}

HMODULE LoadAgent()
{
    const std::wstring program = Torvane::Testing::ProgramPath();
    return LoadLibraryW(
        (program.substr(0, program.find_last_of(L'\\')) + L"\\agent\\x86\\TVN_Agent_x86.dll").c_str());
}

void PrintFunctions()
{
    for (const Function& function : GetFunctions())
    {
        Say("%s", function.name);
    }
    for (const LeftOut& group : GetLeftOut())
    {
        Say("%s|%s", group.names, group.reason);
    }
}
} // namespace

int main(int argc, char** argv)
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    const std::string command = argc > 1 ? argv[1] : "";
    const Company* company = argc > 2 ? FindCompany(argv[2]) : nullptr;
    if (command == "foreign" && company != nullptr)
    {
        return KeepCompany(*company, static_cast<uint32_t>(atoi(argv[3])));
    }
    agent = LoadAgent();
    if (agent == nullptr)
    {
        Say("The Agent's library is missing");
        return 1;
    }
    if (command == "check")
    {
        const std::string differences = Interposition::CompareTable(agent);
        Say("%s", differences.c_str());
        return differences.empty() ? 0 : 1;
    }
    if (command == "functions" || command == "companies")
    {
        (command == "functions" ? PrintFunctions : PrintCompany)();
        return 0;
    }
    if (command == "company" && company != nullptr)
    {
        return Live(LifeKind::Whole, "", 0, company);
    }
    if (command == "damage" && argc > 2)
    {
        return Live(LifeKind::Whole, "", 0, nullptr, argv[2]);
    }
    if (command != "whole" && command != "restart")
    {
        Say("FaultsHost whole|restart [FUNCTION CALL] | company NAME | damage NAME | check | functions | "
            "companies");
        return 2;
    }
    const LifeKind kind = command == "whole" ? LifeKind::Whole : LifeKind::Restart;
    return argc > 3 ? Live(kind, argv[2], static_cast<uint32_t>(atoi(argv[3]))) : Live(kind, "", 0);
}
