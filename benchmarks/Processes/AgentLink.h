#pragma once

/// \file
/// The Bridge's ends of what a benchmark measures. One thread.

#include "Agent/Protocol/Blob.h"
#include "Relay.h"
#include "bridge/BlobWriter.h"
#include "bridge/Link.h"

#include "../Support/Board.h"
#include "../Support/Pipe.h"

#include <stdint.h>

#include <vector>

namespace Torvane::Benchmarks
{
/// Bare pipes to an Agent, without the reading thread and the inbox of the Bridge kit.
class AgentLink
{
public:
    /// Connects, and receives what an Agent sends at its start.
    explicit AgentLink(uint32_t hostProcessId);

    void Send(const std::vector<uint8_t>& blob)
    {
        bridgePipe.Write(blob.data(), static_cast<uint32_t>(blob.size()));
    }

    /// Reads Blobs until one of that type has come, which stays in `Payload`.
    void ReceiveUntil(BlobType type);

    /// Returns when the Agent has executed everything that was sent before.
    void Fence();

    /// Reads a Blob of at most `size` bytes with one call, as its sender wrote it.
    void ReceiveWhole(void* blob, uint32_t size)
    {
        if (!agentPipe.ReadMessage(blob, size))
        {
            Fail("The Agent has gone");
        }
    }

    const uint8_t* Payload() const
    {
        return payload.data();
    }

    /// Waits until the Agent has gone.
    void WaitForEnd();

private:
    bool Receive(BlobHeader& header);

    Pipe agentPipe;
    Pipe bridgePipe;
    std::vector<uint8_t> payload;
};

/// The Bridge's end of the relay.
class RelayLink
{
public:
    explicit RelayLink(uint32_t hostProcessId);

    /// Sends a request as one message of the pipe.
    void Send(RelayCommand command, const void* bytes, uint32_t size);

    /// Receives a message, whose payload stays in `Payload`.
    void Receive();

    /// Sends a request and receives the reply.
    void Request(RelayCommand command, const void* bytes, uint32_t size)
    {
        Send(command, bytes, size);
        Receive();
    }

    const uint8_t* Payload() const
    {
        return payload.data();
    }

    void PingPong();

private:
    Pipe in;
    Pipe out;
    Pipe pingPong;
    std::vector<uint8_t> request;
    std::vector<uint8_t> payload;
};

/// Both, and where results go.
struct Session
{
    AgentLink& agent;
    RelayLink& relay;
    Board& board;
};
using BridgeBenchmark = void (*)(Session& session);

void MeasureEcho(Session& session);
void MeasureMemory(Session& session);
void MeasurePatches(Session& session);
void AnswerExceptions(Session& session);
void ReceiveBursts(Session& session);

// These connect by the Bridge kit itself.
void MeasureRecording(Board& board);
void MeasureReloads(Board& board);
} // namespace Torvane::Benchmarks
