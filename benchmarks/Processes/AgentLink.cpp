#include "AgentLink.h"
#include "Agent/Protocol/Names.h"

#include <string.h>

namespace Torvane::Benchmarks
{
namespace
{
/// \param buffer grows to the largest payload so far.
bool ReadPayload(Pipe& pipe, uint32_t size, std::vector<uint8_t>& buffer)
{
    if (buffer.size() < size)
    {
        buffer.resize(size);
    }
    return pipe.Read(buffer.data(), size);
}
} // namespace

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
    return agentPipe.Read(&header, sizeof(header)) && ReadPayload(agentPipe, header.size, payload);
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

void AgentLink::Fence()
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

void RelayLink::Send(RelayCommand command, const void* bytes, uint32_t size)
{
    if (request.size() < sizeof(RelayHeader) + size)
    {
        request.resize(sizeof(RelayHeader) + size);
    }
    const RelayHeader header = {size, command};
    memcpy(request.data(), &header, sizeof(header));
    memcpy(request.data() + sizeof(header), bytes, size);
    in.Write(request.data(), static_cast<uint32_t>(sizeof(header)) + size);
}

void RelayLink::Receive()
{
    RelayHeader header = {};
    if (!out.Read(&header, sizeof(header)) || !ReadPayload(out, header.size, payload))
    {
        Fail("The relay has gone");
    }
}

void RelayLink::PingPong()
{
    char bytes[sizeof(RelayHeader) + echoRequestSize] = {};
    pingPong.Write(bytes, sizeof(bytes));
    pingPong.Read(bytes, sizeof(RelayHeader) + echoReplySize);
}
} // namespace Torvane::Benchmarks
