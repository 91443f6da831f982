// Benchmark 13, the host's part: an Agent's host, the same without an Agent, and one that is restarted.
#include "HostAgent.h"
#include "HostBenchmarks.h"
#include "Relay.h"
#include "ReloadRelay.h"
#include "ReloadThreads.h"
#include "Reloads.h"
#include "tests/Support/TestLibraries.h"

#include "../Support/CallCounter.h"

namespace Torvane::Benchmarks
{
namespace
{
/// `mov eax, number` and `ret`.
void WriteFunction(uint8_t* place, uint32_t number)
{
    place[0] = 0xB8;
    memcpy(place + 1, &number, sizeof(number));
    place[5] = 0xC3;
}

uint8_t* MakeFunctions(Board& board)
{
    auto* block =
        static_cast<uint8_t*>(VirtualAlloc(nullptr, functionsSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    memset(block, 0xCC, functionsSize);
    for (uint32_t i = 0; i < mostFunctions; ++i)
    {
        WriteFunction(block + i * functionDistance, i);
    }
    DWORD old = 0;
    VirtualProtect(block, functionsSize, PAGE_EXECUTE_READ, &old);
    board->functions = reinterpret_cast<uintptr_t>(block);
    return block;
}

std::vector<uint8_t> BuildPatch(uint32_t size)
{
    std::vector<uint8_t> bytes = Testing::BuildTestLibrary("reload.dll", {}, size);
    auto* headers = reinterpret_cast<IMAGE_NT_HEADERS32*>(
        bytes.data() + reinterpret_cast<IMAGE_DOS_HEADER*>(bytes.data())->e_lfanew);
    IMAGE_SECTION_HEADER* code = IMAGE_FIRST_SECTION(headers);
    const uint32_t codeSize = size / 4;
    headers->FileHeader.NumberOfSections = 2;
    headers->OptionalHeader.AddressOfEntryPoint = entryPointRva;
    code[1] = code[0];
    code[1].VirtualAddress = code[0].VirtualAddress + codeSize;
    code[1].PointerToRawData = code[0].PointerToRawData + codeSize;
    code[1].Misc.VirtualSize = code[1].SizeOfRawData = size - code[1].VirtualAddress;
    memcpy(code[0].Name, ".text", 6);
    code[0].Misc.VirtualSize = code[0].SizeOfRawData = codeSize;
    code[0].Characteristics = IMAGE_SCN_CNT_CODE | IMAGE_SCN_MEM_READ | IMAGE_SCN_MEM_EXECUTE;

    const uint32_t fileSize = code[1].PointerToRawData + code[1].SizeOfRawData;
    const auto at = [&bytes, start = code[0].VirtualAddress - code[0].PointerToRawData](uint32_t rva) {
        return bytes.data() + (rva - start);
    };
    bytes.resize(fileSize, 0x5A);                                       // `code` is no longer valid
    constexpr uint8_t entryPoint[] = {0xB8, 1, 0, 0, 0, 0xC2, 0x0C, 0}; // mov eax, 1; ret 12
    memcpy(at(entryPointRva), entryPoint, sizeof(entryPoint));
    for (uint32_t i = 0; i < mostFunctions && targetsRva + (i + 1) * targetDistance <= 0x1000 + codeSize; ++i)
    {
        WriteFunction(at(targetsRva + i * targetDistance), mostFunctions + i);
    }
    return bytes;
}

void WriteOrFail(const std::wstring& path, const std::vector<uint8_t>& bytes)
{
    if (!Testing::WriteWholeFile(path, bytes.data(), bytes.size()))
    {
        Fail("A benchmark's file can't be written");
    }
}

void WriteFiles(Board& board)
{
    const std::wstring folder =
        Testing::TemporaryFilesFolder() + L"TorvaneBenchmark" + std::to_wstring(GetCurrentProcessId());
    CreateDirectoryW(folder.c_str(), nullptr);
    wcscpy(board->folder, folder.c_str());
    for (const uint32_t size : reloadPatchSizes)
    {
        WriteOrFail(ReloadPatchPath(board, size), BuildPatch(size));
    }
    for (const uint32_t megabytes : stateSizes)
    {
        WriteOrFail(StatePath(board, megabytes), std::vector<uint8_t>(megabytes << 20, 0x5A));
    }
}

__attribute__((noinline)) void ClearStack()
{
    char unused[4096];
    SecureZeroMemory(unused, sizeof(unused));
}

/// A millisecond of a frame. What earlier calls have left where the OS's functions have their frames could be addresses in
/// the Agent, which mean to the Bridge that the thread is inside of it. One such address is kept on request.
__attribute__((noinline)) void SleepWith(HMODULE volatile kept)
{
    ClearStack();
    Sleep(1);
    (void)kept;
}

void ExecuteRequest(Board& board, ReloadThreads& threads, CallCounter& calls, const char* side)
{
    if (board->executed == board->requested)
    {
        return;
    }
    if (board->addsCalls != 0)
    {
        for (const auto& [name, count] : calls.Counts())
        {
            board.AddCalls("host", side, name, count);
        }
    }
    threads.SetCount(static_cast<uint32_t>(board->threads));
    threads.SetAtWork(board->atWork != 0);
    calls.Reset();
    board->executed = board->requested;
}

/// A frame of a synchronized host.
void PollAgent(const HostAgent& agent)
{
    if (agent.synchronizedCalls.TvnWantsReload(SyncBeforeLoad))
    {
        agent.synchronizedCalls.TvnReload(WaitUntilFinished);
    }
}
} // namespace

void HostReloads(Board& board)
{
    WriteFiles(board);
    ReloadThreads threads(MakeFunctions(board));
    static HostAgent agent; // not on this thread's stack, see `SleepWith`
    agent.Load();
    CallCounter calls(agent.library);
    if (board->synchronized != 0)
    {
        agent.StartSynchronized();
    }
    else
    {
        agent.Start();
    }
    agent.WaitForConnection();
    while (board->bridgeDone == 0)
    {
        ExecuteRequest(board, threads, calls, "ours");
        if (board->synchronized != 0)
        {
            PollAgent(agent);
        }
        SleepWith(board->keepsAddress != 0 ? agent.library : nullptr);
    }
    agent.Shutdown();
    Testing::RemoveFolder(board->folder);
}

void HostBareReloads(Board& board, uint32_t bridgeProcessId)
{
    const HANDLE bridge = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, bridgeProcessId);
    DWORD bridgeStatus = STILL_ACTIVE;
    CallCounter calls(GetModuleHandleW(nullptr));
    ReloadThreads threads(MakeFunctions(board));
    board->relayThreads[0] = PrepareReloadRelay(board->synchronized != 0);
    const std::array<uint32_t, 3> relay = StartRelay(nullptr, 0);
    std::copy(relay.begin(), relay.end(), board->relayThreads + 1);
    do
    {
        ExecuteRequest(board, threads, calls, "same calls");
        if (board->synchronized != 0)
        {
            PollAsHost();
        }
        Sleep(1);
    }
    while (GetExitCodeProcess(bridge, &bridgeStatus) && bridgeStatus == STILL_ACTIVE);
}

void HostRestarted(Board& board, uint32_t megabytes)
{
    const HANDLE bridge = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(board->bridgeProcessId));
    const std::wstring path = StatePath(board, megabytes);
    std::vector<uint8_t> state(megabytes << 20);
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    DWORD read = 0;
    if (!ReadFile(file, state.data(), static_cast<DWORD>(state.size()), &read, nullptr) ||
        read != state.size())
    {
        Fail("A host's state can't be read");
    }
    CloseHandle(file);
    Board mine(GetCurrentProcessId());
    ReloadThreads threads(MakeFunctions(mine));
    threads.SetCount(ReloadCase().threads);
    threads.SetAtWork(true);
    SetEvent(OpenRestarted(static_cast<uint32_t>(board->bridgeProcessId)));
    WaitForSingleObject(bridge, INFINITE);
}
} // namespace Torvane::Benchmarks
