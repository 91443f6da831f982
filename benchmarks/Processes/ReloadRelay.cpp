// The same calls of the OS as an Agent's, in its order; `benchmarks/check` compares how many there are of each. Where the
// Agent logs a line, a line of the same length is written.
#include "ReloadRelay.h"

#include "Relay.h"

#include "../Support/Pipe.h"

#include <process.h>
#include <psapi.h>
#include <string.h>

#include <vector>

namespace Torvane::Benchmarks
{
namespace
{
struct Events
{
    HANDLE requested; ///< of a synchronized host's, and all that follow
    HANDLE shouldCompile;
    HANDLE loadWaits;
    HANDLE load;
    HANDLE loadAccepted;
    HANDLE finished;
    HANDLE watchEntered;
    HANDLE watchLeft;
    HANDLE watchEnds; ///< never set
};
Events events;
HANDLE logFile;
bool isSynchronized;

/// \param text its length matters, and what it is.
void Log(const char* text)
{
    char line[1024];
    constexpr size_t positionLength = 66; // time, level, file and line
    LARGE_INTEGER ignored;
    QueryPerformanceCounter(&ignored);
    QueryPerformanceFrequency(&ignored);
    memset(line, ' ', positionLength);
    const size_t length = strlen(text);
    memcpy(line + positionLength, text, length);
    DWORD written = 0;
    WriteFile(logFile, line, static_cast<DWORD>(positionLength + length), &written, nullptr);
}

bool TryWait(HANDLE event)
{
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

unsigned __stdcall Watch(void*)
{
    while (!TryWait(events.watchEnds))
    {
        WaitForSingleObject(events.watchEntered, INFINITE);
        TryWait(events.watchEnds);
        ResetEvent(events.watchEntered);
        WaitForSingleObject(events.watchLeft, 500);
        ResetEvent(events.watchLeft);
    }
    return 0;
}

void PushReload()
{
    const ReloadBlob blob = {GetCurrentProcessId()};
    PushReply(&blob, sizeof(blob));
}

void Request()
{
    if (isSynchronized)
    {
        SetEvent(events.requested);
        return;
    }
    Log("API TvnReload");
    PushReload();
}

void WaitForHost()
{
    if (!isSynchronized || !TryWait(events.loadWaits))
    {
        return;
    }
    ResetEvent(events.loadWaits);
    SetEvent(events.load);
    WaitForSingleObject(events.loadAccepted, INFINITE);
    ResetEvent(events.loadAccepted);
}

/// The file is mapped once more, and the page before each executable section made executable.
void PrepareSections(const wchar_t* path, uint8_t* base)
{
    const HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_READONLY, nullptr);
    const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    const auto* view = static_cast<const uint8_t*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS32*>(
        view + reinterpret_cast<const IMAGE_DOS_HEADER*>(view)->e_lfanew);
    const IMAGE_SECTION_HEADER* sections = IMAGE_FIRST_SECTION(headers);
    for (uint32_t i = 0; i < headers->FileHeader.NumberOfSections; ++i)
    {
        if ((sections[i].Characteristics & IMAGE_SCN_MEM_EXECUTE) != 0)
        {
            uint8_t* before = base + sections[i].VirtualAddress - 5;
            MEMORY_BASIC_INFORMATION pages = {};
            Log("Preparing section preceding RVA 0x1000 for patching");
            VirtualQuery(before, &pages, sizeof(pages));
            Log("Converting page into executable page: address 0x10000000, old protection 0x2, new "
                "protection 0x20");
            DWORD old = 0;
            VirtualProtect(before, 1, PAGE_EXECUTE_READ, &old);
        }
    }
    UnmapViewOfFile(view);
    CloseHandle(mapping);
    CloseHandle(file);
}

std::vector<WirePageRange> QueryPages(uint8_t* base, uint32_t size)
{
    Log("Determining page regions in the address range 0x10000000 with size 0x0000000000040000");
    std::vector<WirePageRange> list;
    for (uint8_t* page = base; page < base + size;)
    {
        MEMORY_BASIC_INFORMATION pages = {};
        VirtualQuery(page, &pages, sizeof(pages));
        Log("Region 0x10000000, size 0x0000000000001000, protection 0x20, state 0x1000");
        page = static_cast<uint8_t*>(pages.BaseAddress) + pages.RegionSize;
        list.push_back({reinterpret_cast<uintptr_t>(pages.BaseAddress), pages.RegionSize, pages.Protect, 0});
    }
    return list;
}

void Load(const LoadPatchWindowsBlob& blob)
{
    Log("Processing Blob::LoadPatchWindows");
    const std::wstring path = FollowWideString(blob.patchPath);
    const bool guarded = blob.watchdog != 0;
    if (guarded)
    {
        Log("Enabling watchdog thread");
        SetEvent(events.watchEntered);
    }
    Log(("Loading patch from " + std::string(path.size(), ' ')).c_str());
    if (!guarded)
    {
        WaitForHost();
    }
    const HMODULE module = LoadLibraryW(path.c_str());
    if (guarded)
    {
        Log("Disabling watchdog thread");
        SetEvent(events.watchLeft);
    }
    MODULEINFO information = {};
    K32GetModuleInformation(GetCurrentProcess(), module, &information, sizeof(information));
    uint8_t* base = reinterpret_cast<uint8_t*>(module);
    PrepareSections(path.c_str(), base);
    const std::vector<WirePageRange> pages = QueryPages(base, information.SizeOfImage);
    std::vector<uint8_t> reply(sizeof(PatchLoadedBlob) + (path.size() + 2) * sizeof(wchar_t) +
                               pages.size() * sizeof(WirePageRange));
    reinterpret_cast<PatchLoadedBlob*>(reply.data())->base = reinterpret_cast<uintptr_t>(module);
    PushReply(reply.data(), static_cast<uint32_t>(reply.size()));
}

void Write(const WriteMemoryBlob& blob)
{
    Log("Processing Blob::WriteMemory");
    const AddressItem* addresses = Follow<AddressItem>(blob.addresses);
    const uint8_t* position = Follow<uint8_t>(blob.data);
    for (uint64_t i = 0; i < blob.elementCount; ++i, position += blob.elementSize)
    {
        memcpy(reinterpret_cast<void*>(static_cast<uintptr_t>(addresses[i].slot)), position,
               static_cast<size_t>(blob.elementSize));
    }
}

void Protect(const SetPageProtectionWindowsBlob& blob)
{
    Log("Processing Blob::SetPageProtectionWindows");
    for (uint32_t i = 0; i < blob.ranges.count; ++i)
    {
        const WirePageRange& range = Follow<WirePageRange>(blob.ranges)[i];
        DWORD old = 0;
        VirtualProtect(reinterpret_cast<void*>(static_cast<uintptr_t>(range.base)),
                       static_cast<uint32_t>(range.size), range.protection, &old);
    }
}

void Exchange(uint8_t* code, const uint8_t* bytes)
{
    DWORD old = 0;
    VirtualProtect(code, entryPointCodeSize, PAGE_READWRITE, &old);
    memcpy(code, bytes, entryPointCodeSize);
    VirtualProtect(code, entryPointCodeSize, old, &old);
    FlushInstructionCache(GetCurrentProcess(), code, entryPointCodeSize);
}

void CallEntry(const CallEntryPointBlob& blob)
{
    using EntryPoint = BOOL(WINAPI*)(void*, DWORD, void*);
    Log("Processing Blob::CallEntryPoint");
    auto* base = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(blob.base));
    uint8_t* code = base + blob.entryPoint;
    Exchange(code, blob.codeBefore);
    reinterpret_cast<EntryPoint>(reinterpret_cast<uintptr_t>(code))(base, DLL_PROCESS_ATTACH, nullptr);
    Exchange(code, blob.codeAfter);
}

void AnswerEcho(const EchoRequestBlob& blob)
{
    const EchoReplyBlob reply = {blob.token};
    PushReply(&reply, sizeof(reply));
}

void Finish()
{
    Log("Processing Blob::FinishAfterHotReload");
    if (isSynchronized)
    {
        SetEvent(events.finished);
    }
}
} // namespace

uint32_t PrepareReloadRelay(bool synchronized)
{
    isSynchronized = synchronized;
    for (HANDLE* event :
         {&events.requested, &events.shouldCompile, &events.loadWaits, &events.load, &events.loadAccepted,
          &events.finished, &events.watchEntered, &events.watchLeft, &events.watchEnds})
    {
        *event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    }
    wchar_t folder[MAX_PATH] = {};
    wchar_t path[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, folder);
    GetTempFileNameW(folder, L"tvn", 0, path);
    logFile = CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                          FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    unsigned id = 0;
    CloseHandle(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, Watch, nullptr, 0, &id)));
    return id;
}

void ExecuteBlob(BlobType type, const void* payload)
{
    switch (type)
    {
    case BlobType::RequestReload:
        return Request();
    case BlobType::LoadPatchWindows:
        return Load(*static_cast<const LoadPatchWindowsBlob*>(payload));
    case BlobType::UnloadPatch:
        FreeLibrary(reinterpret_cast<HMODULE>(
            static_cast<uintptr_t>(static_cast<const UnloadPatchBlob*>(payload)->base)));
        return;
    case BlobType::WriteMemory:
        return Write(*static_cast<const WriteMemoryBlob*>(payload));
    case BlobType::SetPageProtectionWindows:
        return Protect(*static_cast<const SetPageProtectionWindowsBlob*>(payload));
    case BlobType::FlushInstructionCache:
        Log("Processing Blob::FlushInstructionCache");
        FlushInstructionCache(GetCurrentProcess(), nullptr, 0);
        return;
    case BlobType::CallEntryPoint:
        return CallEntry(*static_cast<const CallEntryPointBlob*>(payload));
    case BlobType::EchoRequest:
        return AnswerEcho(*static_cast<const EchoRequestBlob*>(payload));
    case BlobType::FinishAfterHotReload:
        return Finish();
    default:
        Fail("The relay doesn't know a Blob");
    }
}

void PollAsHost()
{
    if (TryWait(events.requested))
    {
        for (const HANDLE event : {events.requested, events.load, events.loadAccepted, events.finished})
        {
            ResetEvent(event);
        }
        SetEvent(events.shouldCompile);
        Log("API TvnReload");
        TryWait(events.load);
        TryWait(events.shouldCompile);
        PushReload();
        ResetEvent(events.shouldCompile);
        SetEvent(events.loadWaits);
    }
    if (TryWait(events.load))
    {
        Log("API TvnReload");
        TryWait(events.load);
        ResetEvent(events.load);
        SetEvent(events.loadAccepted);
        TryWait(events.shouldCompile);
        WaitForSingleObject(events.finished, INFINITE);
    }
}
} // namespace Torvane::Benchmarks
