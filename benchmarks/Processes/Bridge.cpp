/// \file
/// The Bridge of the benchmarks that need processes, one scenario for each figure.

#include "bridge/Bridge.h"
#include "benchmarks/Processes/Measure.h"

namespace Torvane::Benchmarks
{
namespace
{
using namespace Torvane::Bridge;

constexpr uint32_t limit = 60000; // milliseconds

bool Connect(Link& link)
{
    return link.Connect(limit) && link.ExchangeVersion(limit);
}

/// 8: acknowledges at once.
int RunModules(uint32_t hostProcessId)
{
    return RunObediently(hostProcessId);
}

/// 9: a patch by Blob, and the same file by the bare pipe, in turns.
int RunPatches(uint32_t hostProcessId)
{
    Link link(hostProcessId);
    BarePipe pipe;
    uint32_t kind = 0;
    std::vector<uint8_t> payload;
    if (!Connect(link) || !pipe.Open(hostProcessId) || !pipe.Receive(kind, payload))
    {
        return 1;
    }
    for (const uint32_t size : imageSizes)
    {
        const std::wstring path = ImagePath(size);
        PatchOrder order;
        order.path = path;
        std::vector<double> ours;
        std::vector<double> bare;
        for (uint32_t round = 0; round < Rounds(); ++round)
        {
            double begin = Now();
            SendLoadPatch(link, order);
            const auto loaded = link.Expect<PatchLoadedBlob>(limit);
            ours.push_back(Now() - begin);
            if (!loaded)
            {
                return 1;
            }
            SendUnloadPatch(link, loaded->base);
            WaitUntilObeyed(link, limit);

            begin = Now();
            pipe.Send(BareLoad, path.c_str(), static_cast<uint32_t>((path.size() + 1) * sizeof(wchar_t)));
            pipe.Receive(kind, payload);
            bare.push_back(Now() - begin);
            pipe.Send(BareFree, payload.data(), static_cast<uint32_t>(payload.size()));
            pipe.Receive(kind, payload);
        }
        Report(SizeText(size), "ours", ours);
        Report(SizeText(size), "bare load", bare);
    }
    return 0;
}

/// 11: answers every question at once, and every bare message too.
int RunExceptions(uint32_t hostProcessId)
{
    Link link(hostProcessId);
    BarePipe pipe;
    if (!Connect(link) || !pipe.Open(hostProcessId) || !SendInstallExceptionHandler(link, 1) ||
        !WaitUntilObeyed(link, limit) || !pipe.Send(BareReady))
    {
        return 1;
    }
    for (uint32_t round = 0; round < Rounds(); ++round)
    {
        const auto report = link.Expect<HandleExceptionWindowsBlob>(limit);
        if (!report)
        {
            return 1;
        }
        SendHandleExceptionResult(link, *report, ActionSkipInstruction, {});
        for (uint32_t trip = 0; trip < 2; ++trip)
        {
            uint32_t kind = 0;
            std::vector<uint8_t> payload;
            if (!pipe.Receive(kind, payload) || !pipe.Send(kind))
            {
                return 1;
            }
        }
    }
    link.WaitUntilClosed(limit);
    return 0;
}

const RegisteredScenario modules("Figure8", &RunModules);
const RegisteredScenario patches("Figure9", &RunPatches);
const RegisteredScenario exceptions("Figure11", &RunExceptions);
} // namespace
} // namespace Torvane::Benchmarks
