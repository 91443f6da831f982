/// \file
/// The Bridge of the crash sample: has the Agent install its exception handler, shows what it reports, and decides
/// in place of somebody at a dialog.

#include "bridge/Bridge.h"

#include "Agent/Protocol/ExceptionCodes.h"
#include "samples/Crash/Crashes.h"
#include "samples/Crash/Show.h"

#include <algorithm>
#include <string.h>

#include <windows.h>

using namespace Torvane;
using namespace Torvane::Bridge;

namespace Torvane::Sample
{
namespace
{
constexpr uint32_t limit = 20000; // milliseconds

/// The longest instruction that the architecture allows, in bytes.
constexpr size_t longestInstruction = 15;

class Decider
{
public:
    explicit Decider(uint32_t hostProcessId)
        : link(hostProcessId)
        , session(link)
    {
    }

    int Run();

private:
    Result<> Prepare();
    ExceptionDecision Decide(const ReportedException& exception);
    void ShowException(const ReportedException& exception);
    ResumeRecord ReadResumePlace();

    Link link;
    Session session;
    RemoteAddress resumePlaceAddress = 0;
};

int Decider::Run()
{
    const Result<> prepared = Prepare();
    if (!prepared)
    {
        Show("fail", "The Bridge can't keep the host alive: %s", prepared.Reason().c_str());
        return 1;
    }
    link.Run();
    return 0;
}

Result<> Decider::Prepare()
{
    Result<> connected = session.Connect(limit);
    if (!connected)
    {
        return connected;
    }
    const PatchImage executable(session.host.ExecutablePath());
    const RemoteAddress base = session.host.ExecutableBase();
    const uint32_t resumePlace = executable.FindExport("resumePlace");
    const uint32_t isKeptAlive = executable.FindExport("isKeptAlive");
    if (base == 0 || resumePlace == 0 || isKeptAlive == 0)
    {
        return Failure{"the host isn't this sample's"};
    }
    resumePlaceAddress = base + resumePlace;
    const auto decide = [this](const ReportedException& exception) {
        return Decide(exception);
    };
    Result<> served = ServeExceptions(session, HandlerPlace::First, decide, limit);
    if (!served)
    {
        return served;
    }
    return SendWriteMemory(link, {base + isKeptAlive}, {1, 0, 0, 0}) ? Result<>() : ClosedPipe();
}

void ShowRegisters(const WOW64_CONTEXT& context)
{
    Show("regs", "eax %08lX  ebx %08lX  ecx %08lX  edx %08lX", context.Eax, context.Ebx, context.Ecx,
         context.Edx);
    Show("regs", "esi %08lX  edi %08lX  ebp %08lX  esp %08lX", context.Esi, context.Edi, context.Ebp,
         context.Esp);
    Show("regs", "eip %08lX  flags %08lX", context.Eip, context.EFlags);
}

void Decider::ShowException(const ReportedException& exception)
{
    const ExceptionTexts texts = FindExceptionTexts(exception.code);
    Show("!!", "%s (0x%08X) at address %s", texts.name, exception.code,
         AddressText(exception.address).c_str());
    Show("text", "%s", texts.description);
    if (exception.parameters.size() >= 2)
    {
        const char* access = FindAccessText(exception.code, exception.parameters[0]);
        if (access != nullptr)
        {
            Show("text", "%s 0x%08X", access, exception.parameters[1]);
        }
    }
    WOW64_CONTEXT context = {};
    memcpy(&context, exception.context.data(), std::min(sizeof(context), exception.context.size()));
    ShowRegisters(context);

    std::string digits;
    for (const uint8_t byte : session.host.Read(exception.address, longestInstruction))
    {
        char text[8];
        snprintf(text, sizeof(text), "0x%02X ", byte);
        digits += text;
    }
    Show("code", "%s", digits.c_str());
}

/// In place of a choice by somebody who knows the program.
ExceptionDecision Decider::Decide(const ReportedException& exception)
{
    ShowException(exception);
    switch (exception.code)
    {
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
        Show("->", "skip the instruction");
        return {ActionSkipInstruction};
    case EXCEPTION_ACCESS_VIOLATION:
        if (exception.parameters.size() < 2 || exception.address != exception.parameters[1])
        {
            Show("->", "replace the instruction by a no-operation");
            return {ActionNopInstruction};
        }
        Show("->", "resume at the frame around the call");
        return {ActionResumeAtFrame, ReadResumePlace()};
    default:
        Show("->", "leave it to others");
        return {ActionContinueSearch};
    }
}

ResumeRecord Decider::ReadResumePlace()
{
    ResumePlace place = {};
    const std::vector<uint8_t> bytes = session.host.Read(resumePlaceAddress, sizeof(place));
    memcpy(&place, bytes.data(), bytes.size());
    return {place.instructionPointer, place.stackPointer, place.framePointer};
}

int RunCrash(uint32_t hostProcessId)
{
    return StartShow() ? Decider(hostProcessId).Run() : 1;
}

const RegisteredScenario crash("Crash", &RunCrash);
} // namespace
} // namespace Torvane::Sample
