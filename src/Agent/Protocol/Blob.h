#pragma once

/// \file
/// The wire records of the protocol between Agent and Bridge, for both sides; plain data, any thread.
///
/// A Blob is a `BlobHeader`, a fixed part (one of the records below) and the items that the fixed part refers to, back to
/// back in ascending order of the referring fields. Items have no alignment: `Follow` takes types of alignment 1 only, and
/// other items are copied to be read. Integers are little-endian. Addresses, handles and sizes travel in 64-bit slots; the
/// 32-bit side writes the upper half as 0 and ignores it when it reads. Offsets count from the first payload byte.

#include <stddef.h>
#include <stdint.h>

namespace Torvane
{
/// An address or OS handle of the Agent's process; the Bridge hands it back unchanged.
using AddressSlot = uint64_t;

/// Number of a Blob. The numbers that are missing here belong to traffic that the Agent takes no part in.
enum class BlobType : uint32_t
{
    Version = 0,                    ///< both ways, first on each pipe
    RegisterAgent = 1,              ///< Agent to Bridge
    RegisterProcess = 4,            ///< Agent to Bridge
    RegisterProjectPreferences = 7, ///< Agent to Bridge, also in shared memory
    LogNarrow = 10,                 ///< both ways
    LogWide = 11,                   ///< both ways
    EnableModules = 12,             ///< Agent to Bridge
    DisableModules = 13,            ///< Agent to Bridge
    LoadPatchWindows = 17,          ///< Bridge to Agent
    PatchLoaded = 18,               ///< Agent to Bridge
    UnloadPatch = 23,               ///< Bridge to Agent
    CallHooks = 24,                 ///< Bridge to Agent
    ReadMemory = 25,                ///< Bridge to Agent
    ReadMemoryResult = 26,          ///< Agent to Bridge
    WriteMemory = 27,               ///< Bridge to Agent
    CopyMemory = 28, ///< Bridge to Agent; `CopyMemoryBlob::type` where <windows.h> has a macro of this name
    SetPageProtectionWindows = 29,     ///< Bridge to Agent
    CallEntryPoint = 31,               ///< Bridge to Agent
    FlushInstructionCache = 34,        ///< Bridge to Agent
    FinishAfterHotReload = 40,         ///< Bridge to Agent
    RequestReload = 41,                ///< Bridge to Agent
    ScheduleReload = 42,               ///< Agent to Bridge
    Reload = 43,                       ///< Agent to Bridge
    ResumeHeldThreads = 46,            ///< Agent to Bridge
    SuspendHeldThreads = 47,           ///< Agent to Bridge
    RequestRestart = 50,               ///< Bridge to Agent
    ScheduleRestart = 51,              ///< Agent to Bridge
    Restart = 52,                      ///< Agent to Bridge
    ExitProcessForHotRestart = 55,     ///< Bridge to Agent
    InstallExceptionHandler = 60,      ///< Bridge to Agent
    HandleExceptionWindows = 61,       ///< Agent to Bridge
    HandleExceptionWindowsResult = 67, ///< Bridge to Agent
    SetBoolPreferences = 69,           ///< Agent to Bridge
    SetIntPreferences = 70,            ///< Agent to Bridge
    SetStringPreferences = 71,         ///< Agent to Bridge
    SetShortcutPreferences = 72,       ///< Agent to Bridge
    DecrementLatch = 73,               ///< Bridge to Agent
    EchoRequest = 74,                  ///< Bridge to Agent
    EchoReply = 75,                    ///< Agent to Bridge
    Synchronize = 76,                  ///< Bridge to Agent
};

/// The two ways in which reloads and restarts reach the host.
enum AgentType : uint32_t
{
    DefaultAgent = 0,      ///< the Agent's own threads do all the work
    SynchronizedAgent = 1, ///< they only raise events; a host thread polls and carries out
};

/// How many numbers there are, used or not: the Agent's receive table has a slot for each.
constexpr uint32_t blobTypeCount = 77;

#pragma pack(push, 1) // what is read in place among the items

/// Distance in bytes from this field's own address to the data; 0 when no data was supplied.
struct RelativeOffset
{
    uint32_t value;
};

/// An address slot among the items of a Blob.
struct AddressItem
{
    AddressSlot slot;
};
static_assert(sizeof(AddressItem) == 8);

/// One run of pages of like state.
struct WirePageRange
{
    AddressSlot base;
    uint64_t size;       ///< bytes
    uint32_t protection; ///< in the values of `VirtualProtect`
    uint32_t padding;
};
static_assert(sizeof(WirePageRange) == 24);

#pragma pack(pop)

/// A `RelativeOffset` to `count` elements. An empty array still carries a position.
struct RelativeArray
{
    RelativeOffset offset;
    uint32_t count; ///< elements, not bytes
};
static_assert(sizeof(RelativeArray) == 8);

/// The address of the data that a field of a Blob in memory refers to. The field has to lie in the Blob, never in a
/// copy.
inline const void* Follow(const RelativeOffset& field)
{
    return reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(&field) + field.value);
}

/// The items that a field of a Blob in memory refers to, read where they are.
template<typename Item>
const Item* Follow(const RelativeOffset& field)
{
    static_assert(alignof(Item) == 1, "items have no alignment");
    return static_cast<const Item*>(Follow(field));
}

template<typename Item>
const Item* Follow(const RelativeArray& field)
{
    return Follow<Item>(field.offset);
}

/// The UTF-16 string that a field of a Blob in memory refers to, for the OS and for functions that accept any address.
/// It can begin at an odd address: reading it through this pointer is undefined, other code copies it first.
inline const wchar_t* FollowWideString(const RelativeOffset& field)
{
    return static_cast<const wchar_t*>(Follow(field));
}

/// Precedes every payload.
struct BlobHeader
{
    uint32_t size; ///< payload bytes; this header is not counted
    BlobType type;
};
static_assert(sizeof(BlobHeader) == 8);
static_assert(offsetof(BlobHeader, type) == 4);

/// A narrow text stored inline: characters without terminator, and a terminated buffer.
struct InlineText
{
    uint32_t length;
    char text[1024];
};
static_assert(sizeof(InlineText) == 1028);

/// A UTF-16LE text stored inline.
struct InlineWideText
{
    uint32_t length;
    uint16_t text[1024];
};
static_assert(sizeof(InlineWideText) == 2052);

/// One executable file on disk. The headers are those of the published PE format, as bytes.
struct ExecutableIdentity
{
    uint64_t fileSize;      ///< bytes
    uint8_t fileHeader[20]; ///< `IMAGE_FILE_HEADER`
    uint8_t
        optionalHeader[240]; ///< `IMAGE_OPTIONAL_HEADER64`; 224 bytes of `IMAGE_OPTIONAL_HEADER32` and zeros
    uint32_t zero;
};
static_assert(sizeof(ExecutableIdentity) == 272);
static_assert(offsetof(ExecutableIdentity, fileHeader) == 8);
static_assert(offsetof(ExecutableIdentity, optionalHeader) == 28);
static_assert(offsetof(ExecutableIdentity, zero) == 268);

/// One module loaded in the Agent's process.
struct WireModuleIdentity
{
    InlineWideText path; ///< full path; normalized in `EnableModules` and `DisableModules`
    uint32_t padding804;
    AddressSlot base;
    uint32_t imageSize; ///< bytes
    uint32_t padding814;
};
static_assert(sizeof(WireModuleIdentity) == 2072);
static_assert(offsetof(WireModuleIdentity, base) == 2056);
static_assert(offsetof(WireModuleIdentity, imageSize) == 2064);

// Handshake and registration

/// First Blob in each direction.
struct VersionBlob
{
    static constexpr BlobType type = BlobType::Version;
    RelativeOffset version; ///< narrow text
};
static_assert(sizeof(VersionBlob) == 4);

/// The host's project preferences: all 0, by file (`fromFile`), or by record (`fromRecord`). The members that
/// are named by their offset mean something to the Bridge alone.
struct ProjectPreferencesRecord
{
    static constexpr BlobType type = BlobType::RegisterProjectPreferences;
    uint8_t flag00;
    uint8_t flag01;
    uint8_t padding02[2];
    RelativeOffset directoryToBroker; ///< wide text
    RelativeOffset text08;            ///< narrow text
    RelativeOffset text0C;            ///< narrow text
    uint32_t number10;
    uint8_t flag14;
    uint8_t padding15[3];
    RelativeOffset wideText18;
    RelativeOffset wideText1C;
    RelativeOffset text20;
    uint8_t flag24;
    uint8_t flag25;
    uint8_t flag26;
    uint8_t padding27;
    RelativeOffset wideText28;
    RelativeOffset text2C;
    uint8_t flag30;
    uint8_t flag31;
    uint8_t flag32;
    uint8_t flag33;
    uint8_t flag34;
    uint8_t flag35;
    uint8_t padding36[2];
    RelativeOffset wideText38;
    RelativeOffset text3C;
    uint8_t flag40;
    uint8_t flag41;
    uint8_t flag42;
    uint8_t flag43;
    uint8_t flag44;
    uint8_t padding45[3];
    uint32_t number48;
    RelativeOffset wideText4C;
    uint32_t number50;
    uint8_t flag54;
    uint8_t padding55[3];
    RelativeOffset text58;
    RelativeOffset wideText5C;
    uint8_t flag60;
    uint8_t padding61[3];
    RelativeOffset text64;
    uint32_t number68;
    uint8_t flag6C;
    uint8_t padding6D[3];
    RelativeOffset projectPreferencesFile; ///< wide text, absolute path
    uint8_t fromFile;
    uint8_t fromRecord;
    uint8_t padding76[2];
};
static_assert(sizeof(ProjectPreferencesRecord) == 120);
static_assert(offsetof(ProjectPreferencesRecord, directoryToBroker) == 0x04);
static_assert(offsetof(ProjectPreferencesRecord, text08) == 0x08);
static_assert(offsetof(ProjectPreferencesRecord, text0C) == 0x0C);
static_assert(offsetof(ProjectPreferencesRecord, number10) == 0x10);
static_assert(offsetof(ProjectPreferencesRecord, flag14) == 0x14);
static_assert(offsetof(ProjectPreferencesRecord, wideText18) == 0x18);
static_assert(offsetof(ProjectPreferencesRecord, wideText1C) == 0x1C);
static_assert(offsetof(ProjectPreferencesRecord, text20) == 0x20);
static_assert(offsetof(ProjectPreferencesRecord, flag24) == 0x24);
static_assert(offsetof(ProjectPreferencesRecord, flag26) == 0x26);
static_assert(offsetof(ProjectPreferencesRecord, wideText28) == 0x28);
static_assert(offsetof(ProjectPreferencesRecord, text2C) == 0x2C);
static_assert(offsetof(ProjectPreferencesRecord, flag30) == 0x30);
static_assert(offsetof(ProjectPreferencesRecord, flag35) == 0x35);
static_assert(offsetof(ProjectPreferencesRecord, wideText38) == 0x38);
static_assert(offsetof(ProjectPreferencesRecord, text3C) == 0x3C);
static_assert(offsetof(ProjectPreferencesRecord, flag40) == 0x40);
static_assert(offsetof(ProjectPreferencesRecord, flag44) == 0x44);
static_assert(offsetof(ProjectPreferencesRecord, number48) == 0x48);
static_assert(offsetof(ProjectPreferencesRecord, wideText4C) == 0x4C);
static_assert(offsetof(ProjectPreferencesRecord, number50) == 0x50);
static_assert(offsetof(ProjectPreferencesRecord, flag54) == 0x54);
static_assert(offsetof(ProjectPreferencesRecord, text58) == 0x58);
static_assert(offsetof(ProjectPreferencesRecord, wideText5C) == 0x5C);
static_assert(offsetof(ProjectPreferencesRecord, flag60) == 0x60);
static_assert(offsetof(ProjectPreferencesRecord, text64) == 0x64);
static_assert(offsetof(ProjectPreferencesRecord, number68) == 0x68);
static_assert(offsetof(ProjectPreferencesRecord, flag6C) == 0x6C);
static_assert(offsetof(ProjectPreferencesRecord, projectPreferencesFile) == 0x70);
static_assert(offsetof(ProjectPreferencesRecord, fromFile) == 0x74);
static_assert(offsetof(ProjectPreferencesRecord, fromRecord) == 0x75);

struct RegisterAgentBlob
{
    static constexpr BlobType type = BlobType::RegisterAgent;
    uint32_t agentType;       ///< `AgentType`
    InlineText empty;         ///< always empty
    RelativeOffset osVersion; ///< narrow text "major.minor, build"
};
static_assert(sizeof(RegisterAgentBlob) == 1036);
static_assert(offsetof(RegisterAgentBlob, empty) == 4);
static_assert(offsetof(RegisterAgentBlob, osVersion) == 1032);

/// The host's process. The four threads are the Agent's own, which a Bridge must leave running when it holds
/// the process's threads.
struct RegisterProcessBlob
{
    static constexpr BlobType type = BlobType::RegisterProcess;
    ExecutableIdentity executable; ///< of the host's main executable
    uint32_t zero;
    uint32_t processId;
    uint32_t senderThreadId;
    uint32_t receiverThreadId;
    uint32_t heartbeatThreadId;
    uint32_t watchdogThreadId;
    AddressSlot spinForever;       ///< an instruction that jumps to itself
    AddressSlot loaderLock;        ///< the PEB's `LoaderLock`
    AddressSlot processHeapLock;   ///< critical section of the process heap, 0 if it was not found
    RelativeOffset executablePath; ///< wide text
    RelativeOffset commandLine;    ///< wide text
};
static_assert(sizeof(RegisterProcessBlob) == 328);

// Log

/// Level of a log Blob.
enum class BlobLogLevel : uint32_t
{
    Debug = 0,
    Success = 1,
    Info = 2,
    Warning = 3,
    Error = 4,
    Panic = 5,
};

/// The fixed part of `LogNarrow` and `LogWide`. It is followed by the text; the offset counts from its field.
struct LogBlob
{
    BlobLogLevel level;
    RelativeOffset text; ///< narrow or wide, by the Blob's type
};
static_assert(sizeof(LogBlob) == 8);

// Modules

struct EnableModulesBlob
{
    static constexpr BlobType type = BlobType::EnableModules;
    RelativeArray modules;          ///< of WireModuleIdentity
    RelativeArray executables;      ///< of ExecutableIdentity, same order
    RelativeArray pageRangeCounts;  ///< of u64: entries of each module in `pageRanges`
    RelativeArray pageRanges;       ///< of WirePageRange, in module order
    RelativeArray zeros;            ///< of u64, one 0 per module
    RelativeArray secondPageRanges; ///< of WirePageRange, always empty
    AddressSlot latch;              ///< to be named back in `DecrementLatch`
};
static_assert(sizeof(EnableModulesBlob) == 56);

struct DisableModulesBlob
{
    static constexpr BlobType type = BlobType::DisableModules;
    RelativeArray modules;     ///< of WireModuleIdentity
    RelativeArray executables; ///< of ExecutableIdentity, same order
};
static_assert(sizeof(DisableModulesBlob) == 16);

// Patches and memory

/// The Agent reads the named members only; the `unread` ones concern the Bridge alone.
struct LoadPatchWindowsBlob
{
    static constexpr BlobType type = BlobType::LoadPatchWindows;
    uint8_t unread00[4];
    RelativeOffset patchPath;  ///< wide text, full path
    RelativeOffset secondText; ///< wide text, echoed in `PatchLoaded`
    uint8_t unread0C[0x2C];
    uint64_t echo38; ///< the Agent keeps the low 32 bits
    uint8_t unread40[8];
    RelativeArray reservations; ///< of WirePageRange: address space to release for the load
    uint64_t echo50;
    uint64_t echo58;
    uint64_t echo60;
    uint8_t echo68;
    uint8_t watchdog; ///< boolean: the host's threads are suspended, guard the load
    uint8_t padding6A[6];
};
static_assert(sizeof(LoadPatchWindowsBlob) == 0x70);
static_assert(offsetof(LoadPatchWindowsBlob, patchPath) == 0x04);
static_assert(offsetof(LoadPatchWindowsBlob, secondText) == 0x08);
static_assert(offsetof(LoadPatchWindowsBlob, echo38) == 0x38);
static_assert(offsetof(LoadPatchWindowsBlob, reservations) == 0x48);
static_assert(offsetof(LoadPatchWindowsBlob, echo50) == 0x50);
static_assert(offsetof(LoadPatchWindowsBlob, echo58) == 0x58);
static_assert(offsetof(LoadPatchWindowsBlob, echo60) == 0x60);
static_assert(offsetof(LoadPatchWindowsBlob, echo68) == 0x68);
static_assert(offsetof(LoadPatchWindowsBlob, watchdog) == 0x69);

/// Answer to a successful `LoadPatchWindows`.
struct PatchLoadedBlob
{
    static constexpr BlobType type = BlobType::PatchLoaded;
    RelativeOffset patchPath;  ///< wide text, copied from the request
    RelativeOffset secondText; ///< wide text, copied from the request
    uint64_t echo38;           ///< low 32 bits of the request's value
    AddressSlot base;
    uint32_t imageSize; ///< bytes
    uint32_t padding1C;
    uint64_t echo50;
    uint64_t echo58;
    uint64_t echo60;
    RelativeArray pageRanges;       ///< of WirePageRange, after the sections were prepared
    RelativeArray secondPageRanges; ///< of WirePageRange, always empty
    uint8_t echo68;
    uint8_t padding49[7];
};
static_assert(sizeof(PatchLoadedBlob) == 80);

struct UnloadPatchBlob
{
    static constexpr BlobType type = BlobType::UnloadPatch;
    AddressSlot base;
};
static_assert(sizeof(UnloadPatchBlob) == 8);

struct CallHooksBlob
{
    static constexpr BlobType type = BlobType::CallHooks;
    uint32_t kind; ///< 0 to 11; any other value does nothing
    uint32_t padding04;
    AddressSlot first; ///< first entry of a table of 32-bit function pointers
    AddressSlot end;   ///< end of that table
    RelativeOffset firstText;
    uint32_t number; ///< kinds 0 and 1
    RelativeOffset secondText;
    RelativeOffset thirdText;
    RelativeOffset kind7Text;
    RelativeArray textList; ///< of RelativeOffset, kinds 8 and 9; each entry is relative to itself
    uint32_t padding34;
};
static_assert(sizeof(CallHooksBlob) == 0x38);

struct ReadMemoryBlob
{
    static constexpr BlobType type = BlobType::ReadMemory;
    uint8_t unread00[8];
    uint64_t elementSize; ///< bytes
    uint64_t elementCount;
    RelativeOffset addresses; ///< to an array of address slots, one per element
    uint32_t padding1C;
    uint64_t token; ///< returned in the reply
};
static_assert(sizeof(ReadMemoryBlob) == 0x28);

struct ReadMemoryResultBlob
{
    static constexpr BlobType type = BlobType::ReadMemoryResult;
    uint64_t totalSize;  ///< bytes: element size times count
    RelativeOffset data; ///< the elements in order; that of a null address keeps its place, undefined
    uint32_t padding0C;
    uint64_t token;
};
static_assert(sizeof(ReadMemoryResultBlob) == 24);

struct WriteMemoryBlob
{
    static constexpr BlobType type = BlobType::WriteMemory;
    uint8_t unread00[8];
    uint64_t elementSize; ///< bytes; the Agent reads the low half
    uint64_t elementCount;
    RelativeOffset addresses; ///< to an array of address slots, one per element
    RelativeOffset data;      ///< to the elements, back to back
};
static_assert(sizeof(WriteMemoryBlob) == 0x20);

struct CopyMemoryBlob
{
    static constexpr BlobType type = BlobType::CopyMemory;
    uint32_t elementSize; ///< bytes
    uint32_t unread04;
    uint64_t elementCount;
    RelativeOffset sources;      ///< to an array of address slots
    RelativeOffset destinations; ///< to an array of address slots
};
static_assert(sizeof(CopyMemoryBlob) == 0x18);

struct SetPageProtectionWindowsBlob
{
    static constexpr BlobType type = BlobType::SetPageProtectionWindows;
    RelativeArray ranges; ///< of WirePageRange; one whose protection is 0 is skipped
};
static_assert(sizeof(SetPageProtectionWindowsBlob) == 8);

/// How many bytes at a patch's entry point `CallEntryPoint` exchanges.
constexpr uint32_t entryPointCodeSize = 6;

struct CallEntryPointBlob
{
    static constexpr BlobType type = BlobType::CallEntryPoint;
    AddressSlot base;                       ///< also the first argument of the entry point
    uint64_t entryPoint;                    ///< offset from the module base
    uint8_t codeAfter[entryPointCodeSize];  ///< to be put there after the call
    uint8_t codeBefore[entryPointCodeSize]; ///< to be put there before the call
    uint8_t padding1C[4];
};
static_assert(sizeof(CallEntryPointBlob) == 0x20);
static_assert(offsetof(CallEntryPointBlob, entryPoint) == 0x08);
static_assert(offsetof(CallEntryPointBlob, codeAfter) == 0x10);
static_assert(offsetof(CallEntryPointBlob, codeBefore) == 0x16);

// Reload and restart

/// Fixed part of `ScheduleReload`, `ResumeHeldThreads` and `SuspendHeldThreads`: four bytes without meaning.
struct UnwrittenBlob
{
    uint8_t unwritten[4];
};
static_assert(sizeof(UnwrittenBlob) == 4);

struct ReloadBlob
{
    static constexpr BlobType type = BlobType::Reload;
    uint32_t processId;
};
static_assert(sizeof(ReloadBlob) == 4);

struct ScheduleRestartBlob
{
    static constexpr BlobType type = BlobType::ScheduleRestart;
    uint32_t processId; ///< 0 when the host's argument was non-zero
};
static_assert(sizeof(ScheduleRestartBlob) == 4);

struct RestartBlob
{
    static constexpr BlobType type = BlobType::Restart;
    AddressSlot event; ///< handle, to be named back in `ExitProcessForHotRestart`
    uint32_t processId;
    InlineWideText executablePath;
    RelativeOffset commandLine; ///< wide text
    InlineWideText currentDirectory;
    uint64_t environmentSize; ///< bytes
    RelativeOffset environment;
    uint32_t padding1024;
};
static_assert(sizeof(RestartBlob) == 4136);
static_assert(offsetof(RestartBlob, processId) == 0x08);
static_assert(offsetof(RestartBlob, executablePath) == 0x0C);
static_assert(offsetof(RestartBlob, commandLine) == 0x810);
static_assert(offsetof(RestartBlob, currentDirectory) == 0x814);
static_assert(offsetof(RestartBlob, environmentSize) == 0x1018);
static_assert(offsetof(RestartBlob, environment) == 0x1020);

struct ExitProcessForHotRestartBlob
{
    static constexpr BlobType type = BlobType::ExitProcessForHotRestart;
    AddressSlot event;
};
static_assert(sizeof(ExitProcessForHotRestartBlob) == 8);

// Exceptions

struct InstallExceptionHandlerBlob
{
    static constexpr BlobType type = BlobType::InstallExceptionHandler;
    uint32_t order; ///< first argument of `AddVectoredExceptionHandler`
};
static_assert(sizeof(InstallExceptionHandlerBlob) == 4);

/// The addresses lie in the waiting handler's stack frame and are valid until the result was consumed.
struct HandleExceptionWindowsBlob
{
    static constexpr BlobType type = BlobType::HandleExceptionWindows;
    AddressSlot event;
    AddressSlot action;       ///< address of the 32-bit action word
    AddressSlot resumeRecord; ///< address of the 24-byte resume record
    uint32_t processId;
    uint32_t threadId;
    RelativeOffset context; ///< the thread's `CONTEXT`, 716 bytes
    RelativeOffset record;  ///< the `EXCEPTION_RECORD`, 80 bytes
    uint32_t zero;
    uint32_t padding2C;
};
static_assert(sizeof(HandleExceptionWindowsBlob) == 48);

/// Where a thread continues after an exception; only the low halves are used.
struct ResumeRecord
{
    uint64_t instructionPointer;
    uint64_t stackPointer;
    uint64_t framePointer;
};
static_assert(sizeof(ResumeRecord) == 24);

/// What the Broker can decide. Every other value is as `ActionContinueSearch`.
enum ExceptionAction : uint32_t
{
    ActionContinueSearch = 0,  ///< the exception is passed to the next handler
    ActionNopInstruction = 1,  ///< no-operation bytes take the place of the faulting instruction
    ActionSkipInstruction = 2, ///< the thread continues after the faulting instruction
    ActionResumeAtFrame = 3,   ///< one exception frame is unwound, the thread continues where the Broker says
    ActionIgnore = 4,          ///< for us the same as `ActionContinueSearch`
};

struct HandleExceptionWindowsResultBlob
{
    static constexpr BlobType type = BlobType::HandleExceptionWindowsResult;
    AddressSlot event;
    AddressSlot actionAddress;
    uint32_t action; ///< `ExceptionAction`
    uint32_t padding14;
    AddressSlot resumeRecordAddress;
    ResumeRecord resumeRecord;
};
static_assert(sizeof(HandleExceptionWindowsResultBlob) == 0x38);
static_assert(offsetof(HandleExceptionWindowsResultBlob, actionAddress) == 0x08);
static_assert(offsetof(HandleExceptionWindowsResultBlob, action) == 0x10);
static_assert(offsetof(HandleExceptionWindowsResultBlob, resumeRecordAddress) == 0x18);
static_assert(offsetof(HandleExceptionWindowsResultBlob, resumeRecord) == 0x20);

// Preferences set at run time; the numbers are the Broker's

struct SetBoolPreferencesBlob
{
    static constexpr BlobType type = BlobType::SetBoolPreferences;
    uint32_t preference;
    uint8_t value;
    uint8_t padding05[3];
};
static_assert(sizeof(SetBoolPreferencesBlob) == 8);

struct SetIntPreferencesBlob
{
    static constexpr BlobType type = BlobType::SetIntPreferences;
    uint32_t preference;
    int32_t value;
};
static_assert(sizeof(SetIntPreferencesBlob) == 8);

struct SetStringPreferencesBlob
{
    static constexpr BlobType type = BlobType::SetStringPreferences;
    uint32_t preference;
    RelativeOffset value; ///< narrow text
};
static_assert(sizeof(SetStringPreferencesBlob) == 8);

struct SetShortcutPreferencesBlob
{
    static constexpr BlobType type = BlobType::SetShortcutPreferences;
    uint32_t preference;
    uint32_t firstArgument;
    uint32_t secondArgument;
};
static_assert(sizeof(SetShortcutPreferencesBlob) == 12);

// Latches and echoes

struct DecrementLatchBlob
{
    static constexpr BlobType type = BlobType::DecrementLatch;
    AddressSlot latch; ///< as sent in `EnableModules`
};
static_assert(sizeof(DecrementLatchBlob) == 8);

struct EchoRequestBlob
{
    static constexpr BlobType type = BlobType::EchoRequest;
    uint8_t unread00[8];
    uint64_t token;
};
static_assert(sizeof(EchoRequestBlob) == 16);
static_assert(offsetof(EchoRequestBlob, token) == 8);

struct EchoReplyBlob
{
    static constexpr BlobType type = BlobType::EchoReply;
    uint64_t token;
};
static_assert(sizeof(EchoReplyBlob) == 8);
} // namespace Torvane
