#include "AgentLink.h"
#include "Agent/Protocol/Names.h"

#include <string.h>

namespace Torvane::Benchmarks
{
AgentLink::AgentLink(uint32_t hostProcessId)
{
    agentPipe.Open(agentPipePrefix, hostProcessId);
    bridgePipe.Open(bridgePipePrefix, hostProcessId);
    Bridge::BlobWriter<VersionBlob> version;
    version.String(&VersionBlob::version, std::string(apiVersion));
    Send(version.Finish());
    ReceiveUntil(BlobType::RegisterProcess);
}

bool AgentLink::Receive(BlobHeader& header)
{
    if (!agentPipe.Read(&header, sizeof(header)))
    {
        return false;
    }
    if (payload.size() < header.size)
    {
        payload.resize(header.size);
    }
    return agentPipe.Read(payload.data(), header.size);
}

void AgentLink::ReceiveUntil(BlobType type)
{
    BlobHeader header = {};
    do
    {
        if (!Receive(header))
        {
            Fail("The Agent has gone");
        }
    }
    while (header.type != type);
}

void AgentLink::WaitUntilExecuted()
{
    Send(Bridge::BlobWriter<EchoRequestBlob>().Finish());
    ReceiveUntil(BlobType::EchoReply);
}

void AgentLink::WaitForEnd()
{
    BlobHeader header = {};
    while (Receive(header))
    {
    }
}

RelayLink::RelayLink(uint32_t hostProcessId)
{
    in.Open(relayInName, hostProcessId);
    out.Open(relayOutName, hostProcessId);
    pingPong.Open(pingPongName, hostProcessId);
}

void RelayLink::Send(RelayCommand order, const void* bytes, uint32_t size)
{
    if (request.size() < sizeof(RelayHeader) + size)
    {
        request.resize(sizeof(RelayHeader) + size);
    }
    const RelayHeader header = {size, order};
    memcpy(request.data(), &header, sizeof(header));
    memcpy(request.data() + sizeof(header), bytes, size);
    in.Write(request.data(), static_cast<uint32_t>(sizeof(header)) + size);
}

void RelayLink::Receive()
{
    RelayHeader header = {};
    if (!out.Read(&header, sizeof(header)))
    {
        Fail("The relay has gone");
    }
    if (payload.size() < header.size)
    {
        payload.resize(header.size);
    }
    out.Read(payload.data(), header.size);
}

void RelayLink::PingPong()
{
    char bytes[sizeof(RelayHeader) + echoRequestSize] = {};
    pingPong.Write(bytes, sizeof(bytes));
    pingPong.Read(bytes, sizeof(RelayHeader) + echoReplySize);
}
} // namespace Torvane::Benchmarks
