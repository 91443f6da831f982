/// \file
/// The Bridge of the crash sample: has the Agent install its exception handler, shows what it reports, and decides
/// in place of somebody at a dialog.

#include "bridge/Bridge.h"

#include "Agent/Protocol/ExceptionCodes.h"
#include "samples/Crash/Crashes.h"
#include "samples/Crash/Show.h"

#include <string.h>

#include <windows.h>

using namespace Torvane;
using namespace Torvane::Bridge;

namespace Torvane::Sample
{
namespace
{
constexpr uint32_t limit = 20000; // milliseconds
constexpr uint32_t firstPlace = 1;

/// The longest instruction that the architecture allows, in bytes.
constexpr size_t longestInstruction = 15;

/// What a report's fields refer to.
struct Crash
{
    EXCEPTION_RECORD32 record = {};
    WOW64_CONTEXT context = {};
};

class Decider
{
public:
    explicit Decider(uint32_t hostProcessId)
        : link(hostProcessId)
        , host(hostProcessId)
    {
    }

    int Run();

private:
    bool Prepare();
    void Decide(const Received<HandleExceptionWindowsBlob>& report);
    void ShowCrash(const Crash& crash);
    ResumeRecord ReadResumePlace();

    Link link;
    HostProcess host;
    RemoteAddress resumePlaceAddress = 0;
};

int Decider::Run()
{
    if (!Prepare())
    {
        Show("fail", "The Bridge can't keep the host alive");
        return 1;
    }
    while (const auto report = link.WaitFor<HandleExceptionWindowsBlob>(INFINITE))
    {
        Decide(report);
    }
    return 0;
}

bool Decider::Prepare()
{
    if (!link.Connect(limit) || !link.ExchangeVersion(limit))
    {
        return false;
    }
    const auto process = link.WaitFor<RegisterProcessBlob>(limit);
    if (!process)
    {
        return false;
    }
    const PatchImage executable(process.Utf16String(process->executablePath));
    const RemoteAddress base = host.ExecutableBase();
    const uint32_t resumePlace = executable.FindExport("resumePlace");
    const uint32_t isKeptAlive = executable.FindExport("isKeptAlive");
    if (base == 0 || resumePlace == 0 || isKeptAlive == 0)
    {
        return false;
    }
    resumePlaceAddress = base + resumePlace;
    return SendInstallExceptionHandler(link, firstPlace) &&
           SendWriteMemory(link, {base + isKeptAlive}, {1, 0, 0, 0});
}

void ShowRegisters(const WOW64_CONTEXT& context)
{
    Show("regs", "eax %08lX  ebx %08lX  ecx %08lX  edx %08lX", context.Eax, context.Ebx, context.Ecx,
         context.Edx);
    Show("regs", "esi %08lX  edi %08lX  ebp %08lX  esp %08lX", context.Esi, context.Edi, context.Ebp,
         context.Esp);
    Show("regs", "eip %08lX  flags %08lX", context.Eip, context.EFlags);
}

void Decider::ShowCrash(const Crash& crash)
{
    const uint32_t code = crash.record.ExceptionCode;
    const ExceptionTexts texts = FindExceptionTexts(code);
    Show("!!", "%s (0x%08X) at address 0x%08lX", texts.name, code, crash.record.ExceptionAddress);
    Show("text", "%s", texts.description);
    const char* access = FindAccessText(code, crash.record.ExceptionInformation[0]);
    if (access != nullptr)
    {
        Show("text", "%s 0x%08lX", access, crash.record.ExceptionInformation[1]);
    }
    ShowRegisters(crash.context);

    std::string digits;
    for (const uint8_t byte : host.Read(crash.record.ExceptionAddress, longestInstruction))
    {
        char text[8];
        snprintf(text, sizeof(text), "0x%02X ", byte);
        digits += text;
    }
    Show("code", "%s", digits.c_str());
}

/// In place of a choice by somebody who knows the program.
void Decider::Decide(const Received<HandleExceptionWindowsBlob>& report)
{
    Crash crash;
    const std::vector<uint8_t> record = report.Data(report->record, sizeof(crash.record));
    const std::vector<uint8_t> context = report.Data(report->context, sizeof(crash.context));
    memcpy(&crash.record, record.data(), record.size());
    memcpy(&crash.context, context.data(), context.size());
    ShowCrash(crash);

    switch (crash.record.ExceptionCode)
    {
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
        Show("->", "skip the instruction");
        SendHandleExceptionResult(link, *report, ActionSkipInstruction, {});
        break;
    case EXCEPTION_ACCESS_VIOLATION:
        if (crash.record.ExceptionAddress != crash.record.ExceptionInformation[1])
        {
            Show("->", "replace the instruction by a no-operation");
            SendHandleExceptionResult(link, *report, ActionNopInstruction, {});
            break;
        }
        Show("->", "resume at the frame around the call");
        SendHandleExceptionResult(link, *report, ActionResumeAtFrame, ReadResumePlace());
        break;
    default:
        Show("->", "leave it to others");
        SendHandleExceptionResult(link, *report, ActionContinueSearch, {});
        break;
    }
}

ResumeRecord Decider::ReadResumePlace()
{
    ResumePlace place = {};
    const std::vector<uint8_t> bytes = host.Read(resumePlaceAddress, sizeof(place));
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
