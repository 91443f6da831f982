#include "Agent/Exception/Windows/ExceptionHandler.h"

#include "Agent/Exception/ExceptionTable.h"
#include "Agent/Exception/InstructionDecoder.h"
#include "Agent/Exception/NopSequences.h"
#include "Agent/Exception/Windows/ResumeAtFrame.h"
#include "Agent/Exception/Windows/ThreadState.h"
#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Protocol/HostAddress.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Concurrency/Windows/ScopedCriticalSection.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/ProcessMemory.h"

#include <string.h>

namespace Torvane
{
namespace
{
static_assert(sizeof(CONTEXT) == 716);
static_assert(sizeof(EXCEPTION_RECORD) == 80);

/// Owned by the thread whose exception is being reported.
CRITICAL_SECTION exceptionHandlerLock;
void* exceptionHandlerHandle = nullptr;
volatile LONG exceptionHandlerInstallCount = 0;
volatile LONG exceptionHandlerEnableCount = 1; ///< 0: every exception is declined

/// What the Bridge answers with, through the addresses in the report.
struct Decision
{
    uint32_t action;
    ResumeRecord resumeRecord;
};

void LogException(const EXCEPTION_RECORD& record)
{
    const uint32_t code = record.ExceptionCode;
    LogError(TVN_HERE, "%hs exception %hs (0x%08X) occurred at address 0x%p",
             IsExceptionContinuable(record.ExceptionFlags) ? "Continuable" : "Non-continuable",
             GetExceptionName(code), code, record.ExceptionAddress);
    LogError(TVN_HERE, "Reason: %hs", GetExceptionDescription(code));
    const ExceptionDetail detail = GetExceptionDetail(code, record);
    if (detail.text != nullptr)
    {
        LogError(TVN_HERE, "Information: %hs 0x%p", detail.text,
                 reinterpret_cast<void*>(static_cast<uintptr_t>(detail.address)));
    }
    LogInfo(0, TVN_HERE,
            "Select an action in the Torvane Broker exception handler dialog to continue execution");
}

void Report(const EXCEPTION_POINTERS& exception, const Event& event, Decision& decision)
{
    RecordBuilder<HandleExceptionWindowsBlob> builder(sizeof(CONTEXT) + sizeof(EXCEPTION_RECORD));
    HandleExceptionWindowsBlob& report = builder.Fixed();
    report.event = ToSlot(event.handle);
    report.action = ToSlot(&decision.action);
    report.resumeRecord = ToSlot(&decision.resumeRecord);
    report.processId = GetCurrentProcessId();
    report.threadId = GetCurrentThreadId();
    builder.Append(report.context, exception.ContextRecord, sizeof(CONTEXT));
    builder.Append(report.record, exception.ExceptionRecord, sizeof(EXCEPTION_RECORD));
    PushBlob(builder.Finish());
}

/// \param logs whether there is stack enough for the log; `Event::Wait` writes to it too.
void WaitForDecision(Event& event, bool logs)
{
    if (!logs)
    {
        WaitForSingleObject(event.handle, INFINITE);
    }
    else if (!event.Wait())
    {
        LogError(TVN_HERE, "Could not wait for event in exception handler");
    }
}

void AskForDecision(const EXCEPTION_POINTERS& exception, Decision& decision)
{
    const bool logs = exception.ExceptionRecord->ExceptionCode != EXCEPTION_STACK_OVERFLOW;
    if (logs)
    {
        LogException(*exception.ExceptionRecord);
    }
    Event event = {Expect(Event::Create("Exception filter"), "Cannot create event for exception filter")};
    Report(exception, event, decision);
    WaitForDecision(event, logs);
    event.Destroy();
    if (logs)
    {
        LogDebug(TVN_HERE, "Received exception handler action %u", decision.action);
    }
}

/// The length of the instruction at an address that needn't be readable: if it isn't, the copy faults on this
/// thread, and that exception is reported like any other. \return 0 after an Error line if nothing could be decoded.
uint8_t DecodeFaultingInstruction(const void* address)
{
    uint8_t code[longestInstruction] = {};
    memcpy(code, address, sizeof(code));
    const uint8_t length = GetInstructionLength(code);
    if (length == 0)
    {
        LogError(TVN_HERE, "Could not decode instruction at address 0x%p", address);
    }
    return length;
}

LONG Act(EXCEPTION_POINTERS& exception, const Decision& decision, DWORD lastError)
{
    void* address = exception.ExceptionRecord->ExceptionAddress;
    switch (decision.action)
    {
    case ActionNopInstruction:
    {
        const uint8_t length = DecodeFaultingInstruction(address);
        if (length != 0)
        {
            WriteCode(address, GetNopSequence(length), length);
        }
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    case ActionSkipInstruction:
        exception.ContextRecord->Eip =
            static_cast<DWORD>(reinterpret_cast<uintptr_t>(address)) + DecodeFaultingInstruction(address);
        return EXCEPTION_CONTINUE_EXECUTION;
    case ActionResumeAtFrame:
        ResumeAtFrame(exception, decision.resumeRecord, lastError);
        return EXCEPTION_CONTINUE_EXECUTION;
    default:
        return EXCEPTION_CONTINUE_SEARCH;
    }
}
} // namespace

void InstallExceptionHandler(const InstallExceptionHandlerBlob& blob)
{
    LogInfo(0, TVN_HERE, "Installing exception handler with order %u", blob.order);
    InitializeCriticalSection(&exceptionHandlerLock);
    exceptionHandlerHandle = AddVectoredExceptionHandler(blob.order, ExceptionFilter);
    InterlockedIncrement(&exceptionHandlerInstallCount);
}

void RemoveExceptionHandler()
{
    if (exceptionHandlerInstallCount == 0)
    {
        return;
    }
    InterlockedDecrement(&exceptionHandlerInstallCount);
    if (exceptionHandlerHandle != nullptr)
    {
        while (RemoveVectoredExceptionHandler(exceptionHandlerHandle) != 0)
        {
        }
        exceptionHandlerHandle = nullptr;
    }
    DeleteCriticalSection(&exceptionHandlerLock);
}

void PassOnDecision(const HandleExceptionWindowsResultBlob& blob)
{
    *ToPointer<uint32_t*>(blob.actionAddress) = blob.action;
    *ToPointer<ResumeRecord*>(blob.resumeRecordAddress) = blob.resumeRecord;
    SetEvent(ToPointer(blob.event)); // last, since the frame that holds the addresses ends with the wait
}

// The install count is looked at once, so that a removal in between leaves no imbalance.
ScopedExceptionHandlerSuspension::ScopedExceptionHandlerSuspension()
    : suspended(exceptionHandlerInstallCount != 0)
{
    if (suspended)
    {
        InterlockedDecrement(&exceptionHandlerEnableCount);
    }
}

ScopedExceptionHandlerSuspension::~ScopedExceptionHandlerSuspension()
{
    if (suspended)
    {
        InterlockedIncrement(&exceptionHandlerEnableCount);
    }
}

LONG CALLBACK ExceptionFilter(EXCEPTION_POINTERS* exception)
{
    // Without a handle it is called for a registration that has outlasted shutdown.
    if (exceptionHandlerHandle == nullptr || !IsKnownExceptionCode(exception->ExceptionRecord->ExceptionCode))
    {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    const ScopedThreadState state;
    Decision decision = {};
    {
        const ScopedCriticalSection scope(exceptionHandlerLock);
        if (exceptionHandlerEnableCount == 0)
        {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        AskForDecision(*exception, decision);
    }
    return Act(*exception, decision, state.lastError);
}
} // namespace Torvane
