// Exceptions: four threads fault in several ways, and say in their registers how they want to be answered.
#include "tests/Soak/Host.h"

#include "Shared/Foundation/Windows/StructuredException.h"

#include <string.h>

namespace Torvane::Soak
{
volatile LONG unwoundFrames;
}

extern "C"
{
EXCEPTION_DISPOSITION __cdecl SoakCountUnwinding(EXCEPTION_RECORD* record, void*, CONTEXT*, void*)
{
    if ((record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND)) != 0)
    {
        InterlockedIncrement(&Torvane::Soak::unwoundFrames);
    }
    return ExceptionContinueSearch;
}

/// Faults in an exception frame of its own, with EBX = 3 (resume at frame), ESI and EDI where it wants to continue, EBP
/// as it is. \return its argument, if the frame was unwound and all registers are as they were.
uint32_t SoakResumedFault(uint32_t token);
}

asm(R"(
    .globl _SoakResumedFault
    .p2align 4
_SoakResumedFault:
    pushl %ebp
    movl %esp, %ebp
    pushl %ebx
    pushl %esi
    pushl %edi
    movl 8(%ebp), %eax
    movl %esp, %edi
    movl $soakLanding, %esi
    movl $3, %ebx
    pushl $_SoakCountUnwinding
    pushl %fs:0
    movl %esp, %fs:0
    ud2
soakLanding:
    popl %edi
    popl %esi
    popl %ebx
    popl %ebp
    ret
)");

namespace Torvane::Soak
{
namespace
{
constexpr uint32_t threads = 4;
constexpr uint32_t roundsPerSample = 5;
constexpr LONG faultsOfRound = 11; // per thread

/// A fault of one instruction.
struct Fault
{
    uint8_t size;
    uint8_t bytes[6];
};

constexpr Fault faults[] = {
    {2, {0x0F, 0x0B}},                         // ud2
    {6, {0x8B, 0x0D, 0x10, 0x00, 0x00, 0x00}}, // mov ecx, [16]
    {6, {0x89, 0x0D, 0x20, 0x00, 0x00, 0x00}}, // mov [32], ecx
};

/// A function of a thread's own that faults: `uint32_t (uint32_t action, uint32_t token)` gives the token back.
class FaultingCode
{
public:
    FaultingCode()
        : page(static_cast<uint8_t*>(
              VirtualAlloc(nullptr, 0x1000, MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE)))
    {
    }

    ~FaultingCode()
    {
        VirtualFree(page, 0, MEM_RELEASE);
    }

    FaultingCode(const FaultingCode&) = delete;
    FaultingCode& operator=(const FaultingCode&) = delete;

    /// push ebx; mov ebx, [esp + 8]; mov eax, [esp + 12]; the fault; pop ebx; ret
    void Write(const Fault& fault)
    {
        const uint8_t before[] = {0x53, 0x8B, 0x5C, 0x24, 0x08, 0x8B, 0x44, 0x24, 0x0C};
        const uint8_t after[] = {0x5B, 0xC3};
        memcpy(page, before, sizeof(before));
        memcpy(page + sizeof(before), fault.bytes, fault.size);
        memcpy(page + sizeof(before) + fault.size, after, sizeof(after));
    }

    uint32_t Call(uint32_t action, uint32_t token) const
    {
        return reinterpret_cast<uint32_t(__cdecl*)(uint32_t, uint32_t)>(page)(action, token);
    }

private:
    uint8_t* page;
};

const void* TopFrame()
{
    const void* top = nullptr;
    __asm__ volatile("movl %%fs:0, %0" : "=r"(top));
    return top;
}

/// The three ways that end in a frame of the host's own are: 0 and 4 (search), and none known.
bool EndsInFrame(const FaultingCode& code, uint32_t action)
{
    struct Arguments
    {
        const FaultingCode& code;
        uint32_t action;
    } arguments = {code, action};
    return !RunInExceptionFrame(
        [](void* context) {
            const Arguments& call = *static_cast<Arguments*>(context);
            call.code.Call(call.action, 0);
        },
        &arguments);
}

/// Calls code that faults and continues. \return whether registers, last error and control word are as they were.
bool KeepsState(const FaultingCode& code, uint32_t action, uint32_t token)
{
    uint16_t before = 0;
    uint16_t after = 0;
    SetLastError(token);
    __asm__ volatile("fnstcw %0" : "=m"(before));
    const bool kept = code.Call(action, token) == token && GetLastError() == token;
    __asm__ volatile("fnstcw %0" : "=m"(after));
    return kept && after == before;
}

/// One fault of each kind, answered in every way.
void FaultInEveryWay(Session& session, FaultingCode& code, uint32_t token)
{
    for (const Fault& fault : faults)
    {
        code.Write(fault);
        if (!KeepsState(code, 2, token))
        {
            session.board.Fail("state has changed after a skipped instruction");
        }
        if (!KeepsState(code, 1, token))
        {
            session.board.Fail("state has changed after a replaced instruction");
        }
        if (code.Call(1, token) != token) // it doesn't fault any more
        {
            session.board.Fail("a replaced instruction has changed registers");
        }
    }
    code.Write(faults[0]);
    for (const uint32_t action : {0u, 4u, 7u})
    {
        if (!EndsInFrame(code, action))
        {
            session.board.Fail("a fault that is passed on with action %u hasn't reached the host's frame",
                               action);
        }
    }
    const void* top = TopFrame();
    for (uint32_t i = 0; i < 2 && session.HasAgent(); ++i)
    {
        if (SoakResumedFault(token) != token || TopFrame() != top)
        {
            session.board.Fail("state has changed after resuming at a frame");
        }
    }
}

/// The control's handler: answers as the Bridge does, but for frames.
LONG CALLBACK AnswerAlone(EXCEPTION_POINTERS* exception)
{
    CONTEXT& context = *exception->ContextRecord;
    const uint8_t* code = reinterpret_cast<const uint8_t*>(context.Eip);
    if (exception->ExceptionRecord->ExceptionCode != static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION) &&
        exception->ExceptionRecord->ExceptionCode != static_cast<DWORD>(EXCEPTION_ILLEGAL_INSTRUCTION))
    {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    switch (context.Ebx)
    {
    case 1:
        memset(const_cast<uint8_t*>(code), 0x90, *code == 0x0F ? 2 : 6);
        return EXCEPTION_CONTINUE_EXECUTION;
    case 2:
        context.Eip += *code == 0x0F ? 2 : 6;
        return EXCEPTION_CONTINUE_EXECUTION;
    default:
        return EXCEPTION_CONTINUE_SEARCH;
    }
}
} // namespace

void RunExceptions(Session& session)
{
    std::vector<FaultingCode> code(threads);
    Workers workers(threads);
    session.board->work = BridgeWork::AnswerExceptions;
    session.Connect();
    if (!session.HasAgent())
    {
        AddVectoredExceptionHandler(1, &AnswerAlone);
    }
    else if (!session.Await("until the handler is installed", [&] { return session.board->ready != 0; }))
    {
        return;
    }
    for (uint32_t round = roundsPerSample; session.Continues(); round += roundsPerSample)
    {
        session.board.Enter(mainThread, "until all have faulted");
        workers.Run([&](uint32_t thread) {
            for (uint32_t i = 0; i < roundsPerSample; ++i)
            {
                session.board.Enter(thread, "faulting");
                FaultInEveryWay(session, code[thread], Mix(thread, round, i));
            }
            session.board.Enter(thread, "done");
        });
        const LONG due = static_cast<LONG>(round * threads);
        if (session.HasAgent() && unwoundFrames != due * 2)
        {
            session.board.Fail("%ld frames were unwound instead of %ld", unwoundFrames, due * 2);
        }
        if (session.HasAgent() && session.board->exceptions != due * faultsOfRound)
        {
            session.board.Fail("the Bridge knows of %ld exceptions instead of %ld", session.board->exceptions,
                               due * faultsOfRound);
        }
        session.Report(round);
    }
    session.Disconnect();
}
} // namespace Torvane::Soak
