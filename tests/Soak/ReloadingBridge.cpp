#include "tests/Soak/Bridge.h"
#include "tests/Soak/Traffic.h"
#include "tests/Support/Files.h"

#include <algorithm>

namespace Torvane::Soak
{
namespace
{
using namespace Torvane::Bridge;

constexpr uint32_t marker = 0x50A4B175; ///< in the patch's file, in place of its number
constexpr uint32_t watchdogEvery = 10;  ///< also the rounds of a sample
constexpr uint32_t jumpSize = 5;

/// As in `Patch.cpp`.
struct PatchState
{
    uint32_t number;
    uint32_t entries;
    uint32_t base;
    uint32_t reason;
    uint32_t hooks;
    uint32_t texts;
};

/// The images that patches are made of: with an entry point that is idle for the loader.
struct Template
{
    uint32_t state;
    uint32_t data;
    uint32_t value;
    uint32_t hooks;
    uint32_t textHooks;
    uint32_t entryPoint;
    EntryPointCode entryCode;
    std::vector<uint8_t> bytes;
    size_t markerOffset;

    explicit Template(const Board& board)
    {
        PatchImage image(board->patch);
        const std::wstring path =
            board->folder + (L"\\template" + std::to_wstring(GetCurrentProcessId()) + L".dll");
        if (!image.Error().empty())
        {
            board.Fail("the patch: %s", image.Error().c_str());
            return;
        }
        state = image.FindExport("patchState");
        data = image.FindExport("patchData");
        value = image.FindExport("PatchValue");
        hooks = image.FindExport("patchHooks");
        textHooks = image.FindExport("patchTextHooks");
        entryPoint = image.EntryPoint();
        entryCode = image.EntryCode();
        if (!image.MakeEntryPointIdle() || !image.Save(path))
        {
            board.Fail("the patch: %s", image.Error().c_str());
        }
        bytes = Testing::ReadFileBytes(path);
        DeleteFileW(path.c_str());
        const auto* first = reinterpret_cast<const uint8_t*>(&marker);
        markerOffset = static_cast<size_t>(
            std::search(bytes.begin(), bytes.end(), first, first + sizeof(marker)) - bytes.begin());
        if (markerOffset == bytes.size())
        {
            board.Fail("the patch has no place for its number");
        }
    }
};

class Reloader
{
public:
    Reloader(Link& itsLink, const Board& itsBoard, const RegisterAgentBlob& agent,
             const RegisterProcessBlob& process)
        : link(itsLink)
        , board(itsBoard)
        , session(itsLink, agent, process)
        , host(session.host)
        , source(itsBoard)
        , original(host.Read(itsBoard->value, jumpSize))
    {
    }

    /// \return false, with a fault, if something isn't as it has to be.
    bool Reload(uint32_t number);

private:
    bool Load(uint32_t number, bool guarded);
    bool Use(uint32_t number, bool guarded);
    bool CheckState(uint32_t number);
    bool CheckMemory(uint32_t number);
    bool CheckProtection();
    bool Unload(uint32_t number);

    /// Writes code of the host's.
    void WriteCode(const std::vector<uint8_t>& code);
    void Protect(AddressSlot address, uint32_t protection);
    bool Write(AddressSlot address, const std::vector<uint8_t>& data);
    std::vector<uint8_t> Read(AddressSlot address, uint32_t size);

    bool Fence()
    {
        const Result<> executed = Bridge::Fence(link, limit);
        return executed || board.Fail("%s", executed.Reason().c_str());
    }

    /// For the host's main thread.
    bool Await(const char* phase, const volatile LONG& value, uint32_t number) const;

    Link& link;
    const Board& board;
    Session session;
    const HostProcess& host;
    Template source;
    std::vector<uint8_t> original; ///< bytes of the host's function
    std::wstring path;
    AddressSlot base = 0;
};

void Reloader::Protect(AddressSlot address, uint32_t protection)
{
    SendSetPageProtection(link, {{address & ~AddressSlot{0xFFF}, 0x1000, protection, 0}});
}

bool Reloader::Write(AddressSlot address, const std::vector<uint8_t>& data)
{
    return SendWriteMemory(link, {address}, data);
}

std::vector<uint8_t> Reloader::Read(AddressSlot address, uint32_t size)
{
    const Result<std::vector<uint8_t>> bytes = ReadMemory(link, address, size, limit);
    return bytes ? *bytes : std::vector<uint8_t>();
}

bool Reloader::Await(const char* phase, const volatile LONG& value, uint32_t number) const
{
    board.Enter(bridgeThread, phase);
    const double end = link.Now() + limit / 1000;
    while (static_cast<uint32_t>(value) != number)
    {
        if (link.WaitUntilClosed(1) || link.Now() > end)
        {
            return board.Fail("timed out: waited %s", phase);
        }
    }
    return true;
}

bool Reloader::Load(uint32_t number, bool guarded)
{
    memcpy(source.bytes.data() + source.markerOffset, &number, sizeof(number));
    path = board->folder +
           (L"\\patch" + std::to_wstring(link.HostProcessId()) + L"_" + std::to_wstring(number) + L".dll");
    if (!Testing::WriteWholeFile(path, source.bytes.data(), source.bytes.size()))
    {
        return board.Fail("patch %u can't be written", number);
    }
    PatchCommand command;
    command.path = path;
    command.cookie38 = number;
    command.watchdog = guarded;
    SendLoadPatch(link, command); // `LoadPatch` refuses a guarded load of a synchronized host
    const auto loaded = link.WaitFor<PatchLoadedBlob>(limit);
    if (!loaded || loaded->echo38 != number || loaded.Utf16String(loaded->patchPath) != path ||
        loaded->base == 0)
    {
        return board.Fail("patch %u wasn't loaded", number);
    }
    base = loaded->base;
    return true;
}

bool Reloader::CheckState(uint32_t number)
{
    SendCallEntryPoint(link, base, source.entryPoint, source.entryCode, idleEntryPoint);
    SendCallHooks(link, 10, base + source.hooks, base + source.hooks + 3 * 4);
    HookArguments arguments;
    arguments.firstText = "three";
    arguments.secondText = "sixsix";
    SendCallHooks(link, 2, base + source.textHooks, base + source.textHooks + 4, arguments);
    const PatchState expected = {number, 1, static_cast<uint32_t>(base), DLL_PROCESS_ATTACH, 3, 5006};
    const std::vector<uint8_t> state = Read(base + source.state, sizeof(expected));
    if (state.size() != sizeof(expected) || memcmp(state.data(), &expected, sizeof(expected)) != 0)
    {
        return board.Fail("patch %u isn't in the state that it has to be in", number);
    }
    return true;
}

bool Reloader::CheckMemory(uint32_t number)
{
    std::vector<AddressSlot> addresses;
    std::vector<AddressSlot> copies;
    std::vector<uint8_t> data;
    for (uint32_t i = 0; i < 256; ++i)
    {
        data.push_back(static_cast<uint8_t>(Mix(number, i, board->seed)));
    }
    for (uint32_t i = 0; i < 16; ++i)
    {
        addresses.push_back(base + source.data + 16 * i);
        copies.push_back(base + source.data + 256 + 16 * i);
    }
    SendWriteMemory(link, addresses, data);
    SendCopyMemory(link, 16, addresses, copies);
    return Read(base + source.data + 256, 256) == data ||
           board.Fail("corrupted: what patch %u was written", number);
}

bool Reloader::CheckProtection()
{
    const AddressSlot code = base + source.value;
    const uint32_t before = host.QueryPages(code).protection;
    const uint32_t other = before == PAGE_EXECUTE_READ ? PAGE_EXECUTE : PAGE_EXECUTE_READ;
    Protect(code, other);
    const bool changed = Fence() && host.QueryPages(code).protection == other;
    Protect(code, before);
    const bool executed = Fence();
    const uint32_t after = host.QueryPages(code).protection;
    // A page that is copied when it is written, and the copy, can both be written.
    constexpr uint32_t writable = PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    const bool restored =
        executed && (after == before || ((before & writable) != 0 && (after & writable) != 0));
    return (changed && restored) ||
           board.Fail("protection 0x%X of a page was changed to 0x%X: %d, then back to 0x%X", before, other,
                      changed, after);
}

void Reloader::WriteCode(const std::vector<uint8_t>& code)
{
    const uint32_t before = host.QueryPages(board->value).protection;
    Protect(board->value, PAGE_EXECUTE_READWRITE);
    Write(board->value, code);
    Protect(board->value, before);
    SendFlushInstructionCache(link);
}

/// E9 rel32 `jmp`
bool Reloader::Use(uint32_t number, bool guarded)
{
    board.Enter(bridgeThread, guarded ? "using a patch under the watchdog" : "using a patch");
    const uint32_t distance = static_cast<uint32_t>(base + source.value - (board->value + jumpSize));
    std::vector<uint8_t> jump(jumpSize, 0xE9);
    memcpy(jump.data() + 1, &distance, sizeof(distance));
    if (!CheckState(number) || !CheckMemory(number) || !CheckProtection())
    {
        return false;
    }
    WriteCode(jump);
    return Fence();
}

bool Reloader::Unload(uint32_t number)
{
    board.Enter(bridgeThread, "unloading a patch");
    WriteCode(original);
    SendUnloadPatch(link, base);
    if (!Fence())
    {
        return false;
    }
    if (host.ImageAt(base).base != 0)
    {
        return board.Fail("patch %u is still there", number);
    }
    DeleteFileW(path.c_str());
    return true;
}

bool Reloader::Reload(uint32_t number)
{
    board.Enter(bridgeThread, "requesting a reload");
    const bool guarded = number % watchdogEvery == 0;
    const Result<> requested = RequestReload(session, limit);
    if (!requested)
    {
        return board.Fail("reload %u: %s", number, requested.Reason().c_str());
    }
    if (guarded)
    {
        board.Enter(bridgeThread, "suspending threads");
        const Result<> suspended = session.SuspendThreads();
        if (!suspended)
        {
            return board.Fail("%s", suspended.Reason().c_str());
        }
    }
    board.Enter(bridgeThread, guarded ? "loading a patch under the watchdog" : "loading a patch");
    const bool used = Load(number, guarded) && Use(number, guarded);
    board.Enter(bridgeThread, "resuming threads");
    session.ResumeThreads();
    SendFinishAfterHotReload(link);
    if (!used || !Fence())
    {
        return false;
    }
    InterlockedExchange(&board->loaded, static_cast<LONG>(number));
    if (!Await("until the host has called a patch", board->checked, number) || !Unload(number))
    {
        return false;
    }
    InterlockedExchange(&board->finished, static_cast<LONG>(number));
    return number % watchdogEvery != 0 || Await("until the host has taken a sample", board->reported, number);
}
} // namespace

void ReloadAllTheTime(Link& link, const Board& board, const RegisterAgentBlob& agent,
                      const RegisterProcessBlob& process)
{
    Reloader reloader(link, board, agent, process);
    for (uint32_t number = 1; board->stop == 0 && board->faults == 0; ++number)
    {
        if (!reloader.Reload(number))
        {
            break;
        }
    }
    InterlockedExchange(&board->stopped, 1);
    board.Enter(bridgeThread, "done");
    link.WaitUntilClosed(INFINITE);
}
} // namespace Torvane::Soak
