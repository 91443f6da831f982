#include "Interposition.h"

#include "Functions.h"

#include "tests/Support/Modules.h"

#include <string.h>
#include <vector>

namespace Torvane::Faults
{
/// What the code of a replaced import refers to.
struct Counter
{
    const Function* function;
    Counter* ofHeartbeat; ///< counts that thread's calls; null: counted here
    void* target;         ///< what a call that doesn't fail reaches
    void* failure;        ///< code that returns as the failed function
    volatile LONG calls;
};

/// \return what the call continues with. Called on any thread, between the Agent and the OS.
extern "C" void* __cdecl TorvaneFaultsDecide(Counter* counter, uint32_t framePointer, uint32_t returnAddress);
} // namespace Torvane::Faults

// A replaced import pushes its counter and comes here. All registers and the stack below stay as the caller left them.
__asm__(".text\n"
        "_TorvaneFaultsCommon:\n"
        "    pushfl\n"
        "    pushl %eax\n"
        "    pushl %ecx\n"
        "    pushl %edx\n"
        "    pushl 20(%esp)\n" // the return address
        "    pushl %ebp\n"
        "    pushl 24(%esp)\n" // the counter
        "    call _TorvaneFaultsDecide\n"
        "    addl $12, %esp\n"
        "    movl %eax, 16(%esp)\n" // the counter's place becomes the address to continue at
        "    popl %edx\n"
        "    popl %ecx\n"
        "    popl %eax\n"
        "    popfl\n"
        "    ret\n");
extern "C" void TorvaneFaultsCommon();

namespace Torvane::Faults
{
namespace
{
constexpr uint32_t counterCapacity = 256;
constexpr uint32_t codeSize = 32; ///< of one replaced import and its failure

Counter counters[counterCapacity];
uint32_t counterCount = 0;
uint8_t* code = nullptr;
volatile bool armed = false;
Counter* chosen = nullptr;
LONG chosenCall = 0;
volatile LONG heartbeatThread = 0;
Interposition::OnFailure reportFailure = nullptr;

/// The functions that the heartbeat calls with each beat.
constexpr const char* beatFunctions[] = {"WaitForSingleObject", "ReleaseMutex"};

uint8_t* Emit(uint8_t* at, uint8_t opcode, uint32_t operand)
{
    *at = opcode;
    memcpy(at + 1, &operand, sizeof(operand));
    return at + 1 + sizeof(operand);
}

uint32_t Address(const void* pointer)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

/// Writes `push counter; jmp common` and `mov eax, result; ret argumentBytes`. \return the former.
void* EmitCode(Counter& counter)
{
    uint8_t* entry = code + codeSize * (&counter - counters);
    uint8_t* next = Emit(entry, 0x68, Address(&counter));
    next = Emit(next, 0xE9, Address(reinterpret_cast<void*>(&TorvaneFaultsCommon)) - Address(next) - 5);
    counter.failure = next;
    next = Emit(next, 0xB8, counter.function->result);
    *next++ = 0xC2;
    memcpy(next, &counter.function->argumentBytes, sizeof(counter.function->argumentBytes));
    return entry;
}

const Function* Find(const char* name, bool resolved)
{
    for (const Function& function : GetFunctions())
    {
        if (function.resolved == resolved && strcmp(function.name, name) == 0)
        {
            return &function;
        }
    }
    return nullptr;
}

Counter& Add(const Function& function, void* target)
{
    Counter& counter = counters[counterCount++];
    counter.function = &function;
    counter.target = target;
    return counter;
}

std::string NameOf(const Counter& counter)
{
    for (const Counter& other : counters)
    {
        if (other.ofHeartbeat == &counter)
        {
            return std::string(counter.function->name) + " in the heartbeat";
        }
    }
    return counter.function->name;
}

void* Replace(const Function& function, void* target)
{
    Counter& counter = Add(function, target);
    void* entry = EmitCode(counter);
    for (const char* name : beatFunctions)
    {
        if (strcmp(name, function.name) == 0)
        {
            counter.ofHeartbeat = &Add(function, target);
            EmitCode(*counter.ofHeartbeat);
        }
    }
    return entry;
}

void Choose(const std::string& function, uint32_t call)
{
    for (uint32_t i = 0; i < counterCount; ++i)
    {
        if (NameOf(counters[i]) == function)
        {
            chosen = &counters[i];
            chosenCall = static_cast<LONG>(call);
        }
    }
}

std::string unlisted; ///< what was resolved and has no row
std::string wantedFunction;
uint32_t wantedCall = 0;

FARPROC WINAPI ResolveReplaced(HMODULE module, const char* name)
{
    const FARPROC real = GetProcAddress(module, name);
    const Function* function = Find(name, true);
    if (function == nullptr)
    {
        unlisted += std::string("No row for the resolved function ") + name + "\n";
    }
    if (real == nullptr || function == nullptr)
    {
        return real;
    }
    void* entry = Replace(*function, reinterpret_cast<void*>(real));
    Choose(wantedFunction, wantedCall);
    return reinterpret_cast<FARPROC>(entry);
}

/// Nothing else than a beat asks for the time.
void WINAPI NoteBeat(FILETIME* time)
{
    heartbeatThread = static_cast<LONG>(GetCurrentThreadId());
    GetSystemTimeAsFileTime(time);
}

void ForEachImport(HMODULE library, const std::function<void(const char* name, void** slot)>& visit)
{
    uint8_t* image = reinterpret_cast<uint8_t*>(library);
    const auto& directory =
        Testing::ImageHeaders(library).OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* module = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + directory.VirtualAddress);
    for (; module->Name != 0; ++module)
    {
        const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(image + module->OriginalFirstThunk);
        void** slot = reinterpret_cast<void**>(image + module->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slot)
        {
            visit(reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(image + names->u1.AddressOfData)->Name, slot);
        }
    }
}

bool IsLeftOut(const std::string& name)
{
    for (const LeftOut& group : GetLeftOut())
    {
        if ((" " + std::string(group.names)).find(" " + name + " ") != std::string::npos)
        {
            return true;
        }
    }
    return false;
}

void WriteSlot(void** slot, void* function)
{
    DWORD protection = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
    *slot = function;
    VirtualProtect(slot, sizeof(*slot), protection, &protection);
}
} // namespace

extern "C" void* __cdecl TorvaneFaultsDecide(Counter* counter, uint32_t framePointer, uint32_t returnAddress)
{
    if (!armed)
    {
        return counter->target;
    }
    if (counter->ofHeartbeat != nullptr && static_cast<LONG>(GetCurrentThreadId()) == heartbeatThread)
    {
        counter = counter->ofHeartbeat;
    }
    const LONG call = InterlockedIncrement(&counter->calls);
    if (counter != chosen || call != chosenCall)
    {
        return counter->target;
    }
    uint32_t frames[Interposition::frameCount] = {returnAddress};
    Interposition::CollectFrames(framePointer, frames + 1, Interposition::frameCount - 1);
    reportFailure(frames);
    SetLastError(counter->function->lastError);
    return counter->failure;
}

namespace Interposition
{
void Install(HMODULE library, const std::string& function, uint32_t call, OnFailure onFailure)
{
    reportFailure = onFailure;
    wantedFunction = function;
    wantedCall = call;
    code = static_cast<uint8_t*>(
        VirtualAlloc(nullptr, counterCapacity * codeSize, MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE));
    ForEachImport(library, [](const char* name, void** slot) {
        const Function* found = Find(name, false);
        if (strcmp(name, "GetSystemTimeAsFileTime") == 0)
        {
            WriteSlot(slot, reinterpret_cast<void*>(&NoteBeat));
        }
        else if (found != nullptr)
        {
            const bool resolves = strcmp(name, "GetProcAddress") == 0;
            WriteSlot(slot, Replace(*found, resolves ? reinterpret_cast<void*>(&ResolveReplaced) : *slot));
        }
    });
    Choose(function, call);
}

void Arm(bool on)
{
    armed = on;
}

uint32_t CountAll()
{
    uint32_t all = 0;
    for (uint32_t i = 0; i < counterCount; ++i)
    {
        all += static_cast<uint32_t>(counters[i].calls);
    }
    return all;
}

uint32_t Count(const std::string& function)
{
    uint32_t count = 0;
    ForEachCount([&](const std::string& name, uint32_t calls) { count += name == function ? calls : 0; });
    return count;
}

void ForEachCount(const std::function<void(const std::string& function, uint32_t calls)>& report)
{
    for (uint32_t i = 0; i < counterCount; ++i)
    {
        report(NameOf(counters[i]), static_cast<uint32_t>(counters[i].calls));
    }
}

void CollectFrames(uint32_t framePointer, uint32_t* frames, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i)
    {
        uint32_t frame[2] = {}; // the next frame pointer and the return address
        SIZE_T size = 0;
        ReadProcessMemory(GetCurrentProcess(), reinterpret_cast<void*>(static_cast<uintptr_t>(framePointer)),
                          frame, sizeof(frame), &size);
        frames[i] = frame[1];
        framePointer = frame[0];
    }
}

std::string CompareTable(HMODULE library)
{
    std::string differences;
    std::string imported = " ";
    ForEachImport(library, [&](const char* name, void**) {
        imported += std::string(name) + " ";
        if (Find(name, false) == nullptr && !IsLeftOut(name))
        {
            differences += std::string("No row for the import ") + name + "\n";
        }
    });
    std::string rows;
    for (const Function& function : GetFunctions())
    {
        rows += function.resolved ? "" : std::string(function.name) + " ";
    }
    for (const LeftOut& group : GetLeftOut())
    {
        rows += group.names;
    }
    for (size_t end = 0; (end = rows.find(' ')) != std::string::npos; rows.erase(0, end + 1))
    {
        const std::string name = rows.substr(0, end);
        if (imported.find(" " + name + " ") == std::string::npos)
        {
            differences += "No import for the row " + name + "\n";
        }
    }
    return differences + unlisted;
}
} // namespace Interposition
} // namespace Torvane::Faults
