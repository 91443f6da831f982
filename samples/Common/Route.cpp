#include "samples/Common/Route.h"

#include "bridge/Commands.h"

#include <string.h>

#include <windows.h>

using namespace Torvane::Bridge;

namespace Torvane::Sample
{
namespace
{
/// The opcode E9 and the distance from the end of the instruction.
std::vector<uint8_t> MakeJump(RemoteAddress from, RemoteAddress to)
{
    constexpr uint8_t opcode = 0xE9;
    const auto distance = static_cast<uint32_t>(to - (from + jumpSize));
    std::vector<uint8_t> jump(jumpSize);
    jump[0] = opcode;
    memcpy(jump.data() + 1, &distance, sizeof(distance));
    return jump;
}

/// The protection of a page, as announced; 0 outside of the module.
uint32_t ProtectionOf(const EnabledModule& module, RemoteAddress address)
{
    for (const WirePageRange& range : module.pages)
    {
        if (address >= range.base && address - range.base < range.size)
        {
            return range.protection;
        }
    }
    return 0;
}
} // namespace

bool RouteFunction(Link& link, ThreadSuspender& threads, const EnabledModule& module, RemoteAddress from,
                   RemoteAddress to)
{
    while (threads.AnyAt(from + 1, jumpSize - 1))
    {
        threads.Resume();
        threads.Suspend();
    }
    return SendSetPageProtection(link, {{from, jumpSize, PAGE_EXECUTE_READWRITE, 0}}) &&
           SendWriteMemory(link, {from}, MakeJump(from, to)) &&
           SendSetPageProtection(link, {{from, jumpSize, ProtectionOf(module, from), 0}}) &&
           SendFlushInstructionCache(link);
}
} // namespace Torvane::Sample
