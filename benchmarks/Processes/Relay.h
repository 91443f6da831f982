#pragma once

/// \file
/// What the Agent's link is measured against: the same calls of the OS, and nothing else. In the host's process, served
/// by threads of its own.

#include "Agent/Protocol/Blob.h"

#include <stdint.h>

#include <array>

namespace Torvane::Benchmarks
{
/// What a relay is asked for. Takes the place of a Blob's type.
enum class RelayCommand : uint32_t
{
    Echo = 1,      ///< the reply has the request's size, less 8
    Give = 2,      ///< the payload is a size; a message with that many bytes comes back, header included
    GiveFresh = 8, ///< the same out of a block that is allocated for it and takes a copy of the memory
    Take = 3,      ///< the payload goes to the memory; no reply
    TakeFresh = 5, ///< the same by way of a block that is allocated for it; no reply
    Load = 4,      ///< the payload is the path of a library, which is loaded; the reply is its module
    Free = 6,      ///< the payload is such a module, which is freed; an empty reply comes
    Answer = 7,    ///< what `AskRelay` waits for; no reply
    Blob = 100,    ///< from here on: a Blob's type, which `ReloadRelay.h` executes; its reply
};

struct RelayHeader
{
    uint32_t size; ///< bytes of the payload
    RelayCommand command;
};

constexpr wchar_t relayInName[] = L"\\\\.\\pipe\\TVN_BenchmarkIn";    ///< to the host
constexpr wchar_t relayOutName[] = L"\\\\.\\pipe\\TVN_BenchmarkOut";  ///< from the host
constexpr wchar_t pingPongName[] = L"\\\\.\\pipe\\TVN_BenchmarkPing"; ///< both ways
constexpr uint32_t echoRequestSize = 16;                              ///< payload of an `EchoRequest`
constexpr uint32_t echoReplySize = 8;

constexpr RelayCommand BlobCommand(BlobType type)
{
    return static_cast<RelayCommand>(static_cast<uint32_t>(RelayCommand::Blob) + static_cast<uint32_t>(type));
}

/// Creates the pipes and the threads that serve them until the other end is closed.
/// \param data memory of at least `dataSize` bytes for `Give` and `Take`.
/// \return the threads' ids.
std::array<uint32_t, 3> StartRelay(uint8_t* data, uint32_t dataSize);

/// Queues a message for the other end; any thread.
void PushReply(const void* payload, uint32_t payloadSize);

/// A round trip that begins in the host: sends an empty message and waits for an `Answer`.
void AskRelay();

/// Waits for an `Answer` without a request.
void AwaitRelay();
} // namespace Torvane::Benchmarks
