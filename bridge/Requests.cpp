#include "bridge/Requests.h"

#include "bridge/Commands.h"
#include "bridge/Deadline.h"
#include "bridge/HostProcess.h"
#include "bridge/Text.h"

namespace Torvane::Bridge
{
namespace
{
/// Differs from those of requests whose replies have come too late.
uint64_t NextCookie()
{
    static volatile LONG64 last;
    return static_cast<uint64_t>(InterlockedIncrement64(&last));
}

/// Why the host would crash; empty if it wouldn't.
std::string FindUnreadable(const HostProcess& host, uint32_t elementSize,
                           const std::vector<RemoteAddress>& addresses)
{
    for (const RemoteAddress address : addresses)
    {
        if (!host.CanRead(address, elementSize))
        {
            return std::to_string(elementSize) + " bytes at " + AddressText(address) + " can't be read";
        }
    }
    return {};
}
} // namespace

Result<> Fence(Link& link, uint32_t milliseconds)
{
    const uint64_t cookie = NextCookie();
    if (!SendEchoRequest(link, cookie))
    {
        return ClosedPipe();
    }
    const Deadline deadline(milliseconds);
    for (;;)
    {
        const auto reply = link.WaitFor<EchoReplyBlob>(deadline.Remaining());
        if (!reply)
        {
            return Failure{"the Agent hasn't executed everything: " + reply.Reason()};
        }
        if (reply->token == cookie)
        {
            return {};
        }
    }
}

Result<std::vector<uint8_t>> ReadElements(Link& link, uint32_t elementSize,
                                          const std::vector<RemoteAddress>& addresses, uint32_t milliseconds)
{
    const HostProcess host(link.HostProcessId());
    std::string reason = FindUnreadable(host, elementSize, addresses);
    if (!reason.empty())
    {
        return Failure{std::move(reason)};
    }
    const uint64_t cookie = NextCookie();
    if (!SendReadMemory(link, elementSize, addresses, cookie))
    {
        return ClosedPipe();
    }
    const Received<ReadMemoryResultBlob> reply(link.WaitForMatch(
        [cookie](const Message& message) {
            const auto* result = message.As<ReadMemoryResultBlob>();
            return message.Type() == BlobType::ReadMemoryResult && result != nullptr &&
                   result->token == cookie;
        },
        milliseconds));
    if (!reply)
    {
        return Failure{"the Agent hasn't read the memory: " + reply.Reason()};
    }
    return reply.Data(reply->data, reply->totalSize);
}

Result<std::vector<uint8_t>> ReadMemory(Link& link, RemoteAddress address, uint32_t size,
                                        uint32_t milliseconds)
{
    return ReadElements(link, size, {address}, milliseconds);
}
} // namespace Torvane::Bridge
