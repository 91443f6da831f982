// Reloads: the host calls the function that each patch replaces, and lets reloads in as its kind of agent wants it.
#include "tests/Soak/Host.h"
#include "tests/Support/Files.h"
#include "tests/Support/Modules.h"

#include <stdlib.h>

namespace Torvane::Soak
{
namespace
{
constexpr uint32_t roundsPerSample = 10; // the tenth is under the watchdog

/// Replaced by the patches. Its first bytes are 5 that a jump can take the place of.
__attribute__((naked, noinline, aligned(16))) uint32_t Value()
{
    asm volatile("movl $0, %eax\n\t"
                 "ret");
}

/// Takes locks that a suspended thread may own: a heap's and the loader's.
void Busy(Session& session)
{
    for (uint32_t i = 0; session.board->stopped == 0 && session.board->faults == 0; ++i)
    {
        void* block = malloc(64 + i % 4096);
        GetModuleHandleW(L"kernel32.dll");
        Sleep(i % 3);
        free(block);
        if (i % 8 == 0) // long enough for a load under the watchdog to meet it now and then
        {
            HeapLock(GetProcessHeap());
            Sleep(2);
            HeapUnlock(GetProcessHeap());
        }
    }
}

/// A frame of the host's loop.
void Frame(Session& session)
{
    Testing::AgentLibrary& agent = session.agent;
    const AgentKind kind = session.board->kind;
    const TvnReloadSync sync = kind == AgentKind::Compile ? SyncBeforeCompile : SyncBeforeLoad;
    if (kind != AgentKind::Default && agent.TvnWantsReload(sync))
    {
        session.board.Enter(mainThread, "in TvnReload");
        agent.TvnReload(WaitUntilFinished);
        session.board.Enter(mainThread, "in its loop");
    }
    const LONG loaded = session.board->loaded;
    if (loaded != session.board->checked)
    {
        const uint32_t value = reinterpret_cast<uint32_t (*)()>(
            const_cast<void*>(reinterpret_cast<const void* volatile&>(session.board->value)))();
        if (value != static_cast<uint32_t>(loaded))
        {
            session.board.Fail("the host's function gives %u instead of patch %ld's value", value, loaded);
        }
        InterlockedExchange(&session.board->checked, loaded);
    }
    Sleep(1);
}

/// The control: copies and loads a patch by itself, calls what it has, and frees it.
void LoadAlone(Session& session, const std::vector<uint8_t>& image, uint32_t number)
{
    const std::wstring path = session.board->folder + (L"\\control" + std::to_wstring(GetCurrentProcessId()) +
                                                       L"_" + std::to_wstring(number) + L".dll");
    Testing::WriteWholeFile(path, image.data(), image.size());
    const HMODULE module = LoadLibraryW(path.c_str());
    if (module == nullptr)
    {
        session.board.Fail("a patch can't be loaded");
        return;
    }
    Testing::FindExport<uint32_t (*)()>(module, "PatchValue")();
    FreeLibrary(module);
    DeleteFileW(path.c_str());
}
} // namespace

void RunReloads(Session& session)
{
    session.board->value = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&Value));
    session.board->work = BridgeWork::Reload;
    const std::vector<uint8_t> image = Testing::ReadFileBytes(session.board->patch);
    Workers workers(2);
    session.Connect();
    workers.Start([&](uint32_t) { Busy(session); });
    session.board.Enter(mainThread, "in its loop");
    for (uint32_t reported = 0, alone = 0; session.board->stopped == 0 && session.board->faults == 0;)
    {
        if (session.HasAgent())
        {
            Frame(session);
        }
        else
        {
            LoadAlone(session, image, ++alone);
            session.board->finished = static_cast<LONG>(alone);
            session.board->stopped = session.board->stop;
        }
        // The Bridge waits for this at the end of each sample's rounds.
        if (static_cast<uint32_t>(session.board->finished) >= reported + roundsPerSample)
        {
            reported += roundsPerSample;
            session.Report(reported);
            session.board->stop = session.Continues() ? 0 : 1;
            InterlockedExchange(&session.board->reported, static_cast<LONG>(reported));
        }
    }
    session.board.Enter(mainThread, "until its threads end");
    workers.Wait();
    session.Disconnect();
}
} // namespace Torvane::Soak
