#include "BareReload.h"

#include "bridge/PatchImage.h"

#include <algorithm>
#include <iterator>

#include <tlhelp32.h>

namespace Torvane::Benchmarks
{
namespace
{
constexpr uint64_t pageSize = 0x1000;
constexpr uint32_t jumpSize = 5;

std::vector<uint64_t> PlacesOf(uint64_t first, const ReloadCase& reloadCase)
{
    std::vector<uint64_t> places;
    for (uint32_t i = 0; i < reloadCase.functions; ++i)
    {
        places.push_back(first + i * functionDistance);
    }
    return places;
}

std::vector<WirePageRange> PagesOf(const std::vector<uint64_t>& places, uint32_t protection)
{
    std::vector<WirePageRange> pages;
    for (const uint64_t place : places)
    {
        const uint64_t page = place & ~(pageSize - 1);
        if (pages.empty() || pages.back().base != page)
        {
            pages.push_back({page, pageSize, protection, 0});
        }
    }
    return pages;
}

void ReadContext(HANDLE thread, uint32_t& stackPointer)
{
    WOW64_CONTEXT context = {};
    context.ContextFlags = WOW64_CONTEXT_CONTROL;
    Wow64GetThreadContext(thread, &context);
    stackPointer = context.Esp;
}

/// Reads the whole image, and writes it.
void RewriteFile(const std::wstring& path)
{
    DWORD count = 0;
    HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    std::vector<uint8_t> bytes(GetFileSize(file, nullptr));
    ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr);
    CloseHandle(file);
    file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr);
    CloseHandle(file);
}
} // namespace

BareReload::BareReload(uint32_t hostProcessId, Board& itsBoard)
    : processId(hostProcessId)
    , process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | SYNCHRONIZE, FALSE, hostProcessId))
    , board(itsBoard)
    , relay(hostProcessId)
{
}

BareReload::~BareReload()
{
    CloseHandle(process);
}

template<typename Record>
void BareReload::Send(const Bridge::BlobWriter<Record>& blob)
{
    const std::vector<uint8_t> bytes = blob.Finish();
    relay.Send(BlobCommand(Record::type), bytes.data() + sizeof(BlobHeader),
               static_cast<uint32_t>(bytes.size() - sizeof(BlobHeader)));
}

void BareReload::Send(BlobType type)
{
    relay.Send(BlobCommand(type), nullptr, 0);
}

void BareReload::Fence()
{
    Send(Bridge::BlobWriter<EchoRequestBlob>());
    relay.Receive();
}

bool BareReload::SuspendNewThreads()
{
    bool isAnyNew = false;
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
    {
        const uint32_t id = entry.th32ThreadID;
        const bool isExcluded = std::find(std::begin(board->relayThreads), std::end(board->relayThreads),
                                          id) != std::end(board->relayThreads);
        if (entry.th32OwnerProcessID == processId && !isExcluded &&
            std::none_of(threads.begin(), threads.end(),
                         [id](const Thread& thread) { return thread.id == id; }))
        {
            const HANDLE thread =
                OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION, FALSE, id);
            SuspendThread(thread);
            threads.push_back({id, thread});
            isAnyNew = true;
        }
    }
    CloseHandle(snapshot);
    return isAnyNew;
}

void BareReload::Suspend(const ReloadCalls& calls)
{
    while (SuspendNewThreads())
    {
    }
    Inspect(calls.contextsPerThread, calls.stacksPerThread);
}

void BareReload::Inspect(uint32_t contexts, uint32_t stacks) const
{
    for (const Thread& thread : threads)
    {
        uint32_t stackPointer = 0;
        for (uint32_t i = 0; i < contexts; ++i)
        {
            ReadContext(thread.handle, stackPointer);
        }
        for (uint32_t i = 0; i < stacks; ++i)
        {
            uint32_t stack[128];
            ReadProcessMemory(process, reinterpret_cast<const void*>(uintptr_t{stackPointer}), stack,
                              sizeof(stack), nullptr);
        }
    }
}

void BareReload::Resume()
{
    for (const Thread& thread : threads)
    {
        ResumeThread(thread.handle);
        CloseHandle(thread.handle);
    }
    threads.clear();
}

void BareReload::Load(const std::wstring& path, bool guarded, const ReloadCalls& calls)
{
    if (calls.isFileWritten)
    {
        RewriteFile(path);
    }
    Bridge::BlobWriter<LoadPatchWindowsBlob> load;
    load.String(&LoadPatchWindowsBlob::patchPath, path);
    load.String(&LoadPatchWindowsBlob::secondText, std::wstring());
    load.List(&LoadPatchWindowsBlob::reservations, std::vector<WirePageRange>());
    load.fixed.watchdog = guarded ? 1 : 0;
    Send(load);
    relay.Receive();
    base = reinterpret_cast<const PatchLoadedBlob*>(relay.Payload())->base;
    if (base == 0)
    {
        Fail("The relay can't load an image");
    }
}

void BareReload::Query(uint64_t address)
{
    MEMORY_BASIC_INFORMATION pages = {};
    VirtualQueryEx(process, reinterpret_cast<const void*>(address), &pages, sizeof(pages));
}

void BareReload::Route(const ReloadCase& reloadCase, const ReloadCalls& calls)
{
    std::vector<uint8_t> code;
    for (uint32_t i = 0; i < reloadCase.functions; ++i)
    {
        const uint64_t from = board->functions + i * functionDistance;
        const uint64_t to = base + targetsRva + i * targetDistance;
        for (uint32_t read = 0; read < calls.readsPerFunction; ++read)
        {
            uint8_t old[jumpSize];
            ReadProcessMemory(process, reinterpret_cast<const void*>(read % 2 == 0 ? from : to), old,
                              sizeof(old), nullptr);
        }
        for (uint32_t query = 0; query < calls.queriesPerFunction; ++query)
        {
            Query(query == 0 ? to : from);
        }
        const auto distance = static_cast<uint32_t>(to - from - jumpSize);
        code.push_back(0xE9);
        code.insert(code.end(), reinterpret_cast<const uint8_t*>(&distance),
                    reinterpret_cast<const uint8_t*>(&distance + 1));
    }
    WriteFunctions(reloadCase, code, calls);
}

void BareReload::WriteFunctions(const ReloadCase& reloadCase, const std::vector<uint8_t>& code,
                                const ReloadCalls& calls)
{
    const std::vector<uint64_t> places = PlacesOf(board->functions, reloadCase);
    Bridge::BlobWriter<SetPageProtectionWindowsBlob> writable;
    writable.List(&SetPageProtectionWindowsBlob::ranges, PagesOf(places, PAGE_EXECUTE_READWRITE));
    Send(writable);
    Fence();
    const std::vector<WirePageRange> pages = PagesOf(places, PAGE_EXECUTE_READ);
    for (const WirePageRange& page : pages)
    {
        for (uint32_t query = 0; query < calls.queriesPerPage; ++query)
        {
            Query(page.base);
        }
    }
    Bridge::BlobWriter<WriteMemoryBlob> write;
    write.fixed.elementSize = code.size() / places.size();
    write.fixed.elementCount = places.size();
    write.List(&WriteMemoryBlob::addresses, places);
    write.List(&WriteMemoryBlob::data, code);
    Send(write);
    Bridge::BlobWriter<SetPageProtectionWindowsBlob> readOnly;
    readOnly.List(&SetPageProtectionWindowsBlob::ranges, pages);
    Send(readOnly);
    Send(BlobType::FlushInstructionCache);
    Fence();
}

void BareReload::CallEntryPoint()
{
    Bridge::BlobWriter<CallEntryPointBlob> call;
    call.fixed.base = base;
    call.fixed.entryPoint = entryPointRva;
    memcpy(call.fixed.codeAfter, Bridge::idleEntryPoint.bytes, entryPointCodeSize);
    memcpy(call.fixed.codeBefore, Bridge::idleEntryPoint.bytes, entryPointCodeSize);
    Send(call);
}

void BareReload::Run(const ReloadCase& reloadCase, const std::wstring& path, bool synchronized,
                     const ReloadCalls& calls)
{
    Send(BlobType::RequestReload);
    relay.Receive();
    if (synchronized)
    {
        Load(path, false, calls);
        Suspend(calls);
    }
    else
    {
        Suspend(calls);
        Load(path, true, calls);
        if (calls.looksAgain)
        {
            SuspendNewThreads();
            Inspect(1, 1);
        }
    }
    Route(reloadCase, calls);
    CallEntryPoint();
    Fence();
    Resume();
    Send(BlobType::FinishAfterHotReload);
    Fence();
}

void BareReload::Undo(const ReloadCase& reloadCase)
{
    std::vector<uint8_t> code;
    for (uint32_t i = 0; i < reloadCase.functions; ++i)
    {
        code.push_back(0xB8);
        code.insert(code.end(), reinterpret_cast<const uint8_t*>(&i),
                    reinterpret_cast<const uint8_t*>(&i + 1));
    }
    WriteFunctions(reloadCase, code, fewestCalls);
    Bridge::BlobWriter<UnloadPatchBlob> unload;
    unload.fixed.base = base;
    Send(unload);
    Fence();
}
} // namespace Torvane::Benchmarks
