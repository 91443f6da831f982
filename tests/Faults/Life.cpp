#include "Life.h"

#include "Damage.h"
#include "Interposition.h"
#include "Shared/Foundation/Windows/StructuredException.h"

#include "tests/Support/Modules.h"
#include "tests/Support/TestLibraries.h"

#include <stdarg.h>
#include <stdio.h>

namespace Torvane::Faults
{
namespace
{
constexpr DWORD connectionLimit = 40000; ///< milliseconds: both pipes' time-outs and more
constexpr DWORD firstPatience = 4000;    ///< milliseconds for what another process or thread is to do
constexpr DWORD laterPatience = 500;     ///< once something hasn't come
constexpr DWORD lastError = 0x12345;

volatile LONG hookCalls;

void __cdecl Hook(uint32_t)
{
    InterlockedIncrement(&hookCalls);
}

void (*hooks[])(uint32_t) = {Hook, Hook};
uint32_t memory = 21;

/// Faults at its first instruction, `mov eax, [0]`, and returns 42 if that is skipped.
constexpr uint8_t faultingCode[] = {0xA1, 0, 0, 0, 0, 0xB8, 42, 0, 0, 0, 0xC3};
uint8_t* faultingPage = nullptr;

uint32_t AddressOf(const void* pointer)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

std::wstring ImagePath(const wchar_t* name)
{
    const std::wstring program = Testing::ProgramPath();
    return program.substr(0, program.find_last_of(L'\\')) + L"\\..\\integration\\images\\" + name;
}
} // namespace

void Say(const char* format, ...)
{
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof(line) - 1, format, arguments);
    va_end(arguments);
    line[length] = '\n';
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), line, static_cast<DWORD>(length + 1), &written, nullptr);
}

Life::Life(LifeKind lifeKind, HMODULE agentLibrary, Board& sharedBoard)
    : kind(lifeKind)
    , library(agentLibrary)
    , board(sharedBoard)
    , patience(firstPatience)
{
    faultingPage = static_cast<uint8_t*>(VirtualAlloc(nullptr, 0x1000, MEM_COMMIT, PAGE_READWRITE));
    memcpy(faultingPage, faultingCode, sizeof(faultingCode));
    DWORD protection = 0;
    VirtualProtect(faultingPage, 0x1000, PAGE_EXECUTE_READ, &protection);
    board->hooks = AddressOf(hooks);
    board->memory = AddressOf(&memory);
    board->reservation = AddressOf(VirtualAlloc(nullptr, 0x10000, MEM_RESERVE, PAGE_NOACCESS));
    wcscpy(board->patches[0], ImagePath(L"EntryPoint.dll").c_str());
    wcscpy(board->patches[1], ImagePath(L"PlainPatch.dll").c_str());
}

bool Life::IsOnPurpose(const EXCEPTION_RECORD& record)
{
    return record.ExceptionAddress == faultingPage;
}

template<typename Export>
Export* Life::Find(const char* name) const
{
    return Testing::FindExport<Export*>(library, name);
}

/// Waits for the other side, but not if there is none.
template<typename Condition>
bool Life::WaitFor(Condition condition, DWORD milliseconds)
{
    const DWORD start = GetTickCount();
    while (!condition())
    {
        if (!IsConnected() || GetTickCount() - start > milliseconds)
        {
            return condition();
        }
        Sleep(1);
    }
    return true;
}

bool Life::IsConnected() const
{
    return status == ConnectionSucceeded && board->leave == 0 && board->left == 0;
}

LONG Life::Received(BlobType type) const
{
    return board->received[static_cast<uint32_t>(type)];
}

void Life::Play(const char* name, Phase run)
{
    phaseStart = GetTickCount();
    phase = name;
    const bool done = (this->*run)();
    Say("phase %s %s", name, done ? "ok" : "lost");
    if (!done)
    {
        patience = laterPatience;
    }
    if (!(ThreadState::Read() == state))
    {
        Say("state floating point after %s", name);
        state.Write();
    }
}

void Life::Run()
{
    // Not the defaults, so that a reset shows: 53 bits and rounding down, and flushing to zero.
    state = {0x067F, 0x9F80};
    state.Write();
    if (kind == LifeKind::Whole)
    {
        Interposition::Arm(true);
    }
    Play("startup", &Life::Startup);
    Play("connection", &Life::Connection);
    if (kind == LifeKind::Restart)
    {
        Play("restart", &Life::RestartToTheEnd);
    }
    else
    {
        Play("damage", &Life::Damage);
        Play("calls", &Life::Calls);
        Play("enabling", &Life::Enabling);
        Play("automatic handling", &Life::Automatic);
        Play("reload", &Life::Reload);
        Play("exceptions", &Life::Exceptions);
        Play("disabling", &Life::Disabling);
        Play("restart", &Life::Restart);
    }
    Play("shutdown", &Life::Shutdown);
    Play("afterwards", &Life::Afterwards);
    ended = true;
}

bool Life::Startup()
{
    const std::wstring preferences = ImagePath(L"..\\..\\faults\\project_preferences.json");
    if (kind == LifeKind::Whole)
    {
        Find<decltype(TvnStartupSynchronizedAgent)>("TvnStartupSynchronizedAgent")(
            &agent, nullptr, preferences.c_str(), nullptr);
    }
    else
    {
        Find<decltype(TvnStartupDefaultAgent)>("TvnStartupDefaultAgent")(&defaultAgent, nullptr, nullptr,
                                                                         nullptr);
    }
    return true;
}

void TVN_CALL Life::TakeStatus(void* life, TvnConnectionStatus status)
{
    InterlockedExchange(&static_cast<Life*>(life)->status, status);
}

bool Life::Connection()
{
    Find<decltype(TvnOnConnection)>("TvnOnConnection")(this, &TakeStatus);
    for (const DWORD start = GetTickCount(); status == -1 && GetTickCount() - start < connectionLimit;)
    {
        Sleep(1);
    }
    Say("status %ld", status);
    return WaitFor([this] { return board->entered != 0; }, patience);
}

bool Life::Damage()
{
    return damage.empty() || DoDamage(damage);
}

bool Life::Calls()
{
    agent.TvnLogMessage(L"a message");
    agent.TvnLogMessageANSI("another message");
    agent.TvnSetBoolPreferences(1, true);
    agent.TvnSetIntPreferences(2, 3);
    agent.TvnSetStringPreferences(4, "text");
    agent.TvnSetShortcutPreferences(5, 6, 7);
    const auto allCame = [this] {
        bool all = true;
        for (const BlobType type :
             {BlobType::LogWide, BlobType::LogNarrow, BlobType::SetBoolPreferences,
              BlobType::SetIntPreferences, BlobType::SetStringPreferences, BlobType::SetShortcutPreferences})
        {
            all = all && Received(type) == 1;
        }
        return all;
    };
    return WaitFor(allCame, patience);
}

bool TVN_CALL Life::KeepModule(void* life, const wchar_t*)
{
    InterlockedIncrement(&static_cast<Life*>(life)->filterCalls);
    return true;
}

bool Life::Enabling()
{
    static Testing::TestLibraries libraries(L"enabled");
    libraries.Write("second.dll");
    libraries.Write("first.dll", {{"second.dll"}});
    libraries.Load("first.dll");
    const std::wstring program = Testing::ProgramPath();
    const std::wstring first = libraries.PathOf("first.dll");
    agent.TvnEnableModule(program.c_str(), ExactlyTheseModules, nullptr, nullptr);
    agent.TvnEnableModule(first.c_str(), IncludeImports, this, &KeepModule);
    return WaitFor([this] { return Received(BlobType::EnableModules) == 2; }, patience) && filterCalls == 2;
}

bool Life::Automatic()
{
    const LONG enabled = Received(BlobType::EnableModules);
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(this, nullptr);
    {
        Testing::TestLibraries libraries(L"automatic");
        libraries.Write("loaded.dll");
        libraries.Load("loaded.dll");
    }
    const auto bothCame = [this, enabled] {
        return Received(BlobType::EnableModules) == enabled + 1 && Received(BlobType::DisableModules) == 1;
    };
    return WaitFor(bothCame, patience);
}

bool Life::Reload()
{
    agent.TvnScheduleReload();
    if (!WaitFor([this] { return agent.TvnWantsReload(SyncBeforeCompile); }, patience))
    {
        return false;
    }
    agent.TvnReload(WaitUntilFinished);
    return board->reloads == 1 && hookCalls == 2 && memory == 42;
}

uint32_t Life::Fault()
{
    uint32_t result = 0;
    const auto call = [](void* context) {
        *static_cast<uint32_t*>(context) = reinterpret_cast<uint32_t(__cdecl*)()>(faultingPage)();
    };
    SetLastError(lastError);
    RunInExceptionFrame(call, &result);
    if (GetLastError() != lastError)
    {
        Say("state last error after %s", phase);
    }
    return result;
}

bool Life::Exceptions()
{
    if (!IsConnected())
    {
        return false; // nobody answers
    }
    const bool skipped = Fault() == 42;
    return Fault() == 42 && skipped; // the second answer replaces the instruction
}

bool Life::Disabling()
{
    const LONG disabled = Received(BlobType::DisableModules);
    agent.TvnDisableModule(Testing::ProgramPath().c_str(), ExactlyTheseModules, nullptr, nullptr);
    return WaitFor([this, disabled] { return Received(BlobType::DisableModules) == disabled + 1; }, patience);
}

bool Life::Restart()
{
    agent.TvnScheduleRestart(ThisProcessOnly);
    if (!WaitFor([this] { return agent.TvnWantsRestart(); }, patience))
    {
        return false;
    }
    constexpr auto nothing = static_cast<TvnRestartBehaviour>(99); // the process lives on
    agent.TvnRestart(nothing, 0);
    return Received(BlobType::Restart) == 1;
}

/// Returns only if the restart has failed.
bool Life::RestartToTheEnd()
{
    Interposition::Arm(true);
    defaultAgent.TvnScheduleRestart(ThisProcessOnly);
    WaitFor([] { return Interposition::Count("TerminateProcess") != 0; }, patience);
    Sleep(200);
    Interposition::Arm(false); // what comes now belongs to the other life
    return false;
}

bool Life::Shutdown()
{
    Find<decltype(TvnShutdown)>("TvnShutdown")();
    return true;
}

/// Nothing of the Agent runs any more, whatever the host does.
bool Life::Afterwards()
{
    Sleep(20);
    const uint32_t calls = Interposition::CountAll();
    {
        Testing::TestLibraries libraries(L"afterwards");
        libraries.Write("late.dll");
        libraries.Load("late.dll");
    }
    DWORD protection = 0;
    VirtualProtect(faultingPage, 0x1000, PAGE_EXECUTE_READWRITE, &protection);
    memcpy(faultingPage, faultingCode, sizeof(faultingCode));
    if (Fault() == 42)
    {
        Say("state exception handler still there");
    }
    Sleep(30);
    if (Interposition::CountAll() != calls)
    {
        Say("state the Agent still runs");
    }
    return true;
}
} // namespace Torvane::Faults
