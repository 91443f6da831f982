#pragma once

/// \file
/// The Bridge's end of the two pipes to one Agent; any thread may send and receive.

#include "Agent/Protocol/Names.h"
#include "bridge/Message.h"

#include <functional>
#include <memory>
#include <vector>

namespace Torvane::Bridge
{
/// Connects to an Agent, reads every Blob that it sends into an inbox, and writes Blobs to it.
///
/// Once connected, the link's own thread reads the agent pipe continuously. Blobs stay in the inbox, in the order of
/// arrival, until they are received. Limits are in milliseconds.
class Link
{
public:
    /// Called for each Blob in both directions, after it was read or before it is written, one at a time, on the
    /// reading or the sending thread. It may not send.
    using Observer = std::function<void(const Message&)>;

    /// Doesn't connect. \param hostProcessId the process whose Agent this is for; it is part of the pipes' names.
    explicit Link(uint32_t hostProcessId);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    uint32_t HostProcessId() const;

    /// Adds an observer. To be called before connecting.
    void Observe(Observer observer);

    /// Sets a function that is called at the end of the constructor of each link. To be called before the first link
    /// is created.
    static void OnEveryLink(std::function<void(Link&)> function);

    /// Opens both pipes, retries while they don't exist or are in use, and starts reading.
    /// \return whether both were opened within the limit.
    bool Connect(uint32_t milliseconds);

    /// The two halves of `Connect`, for tests that need one of them.
    bool ConnectAgentPipe(uint32_t milliseconds);
    bool ConnectBridgePipe(uint32_t milliseconds);

    /// Sends the Bridge's `Version` and receives the Agent's.
    /// \return whether the Agent's arrived within the limit and is the same version.
    bool ExchangeVersion(uint32_t milliseconds, const char* version = apiVersion);

    /// Sends bytes as one message of the pipe. \return false if the pipe is closed.
    bool Send(const std::vector<uint8_t>& bytes);

    /// Removes the first Blob from the inbox. Empty after the limit, or if the inbox is empty and the pipe is closed.
    Message Receive(uint32_t milliseconds);

    /// As `Receive`, for the first Blob of one of these types. Others stay in the inbox.
    Message WaitForOneOf(const std::vector<BlobType>& types, uint32_t milliseconds);

    /// As `WaitForOneOf`, for one type whose fixed part is `Record`. Also empty for a Blob that is too short.
    template<typename Record>
    Received<Record> WaitFor(uint32_t milliseconds, BlobType type = Record::type)
    {
        return Received<Record>(WaitForOneOf({type}, milliseconds));
    }

    /// Whether the Agent's end of the agent pipe was closed within the limit.
    bool WaitUntilClosed(uint32_t milliseconds);
    bool IsClosed() const;

    /// Stops reading and closes both pipes. The inbox keeps its Blobs.
    void Close();

    /// Seconds since the link was created.
    double Now() const;

private:
    struct State;
    std::unique_ptr<State> state;
};

/// The process id of the host, from this process's command line: an Agent passes it as the only argument. If there are
/// several, the last one is used. 0 if there is none.
uint32_t HostProcessIdFromCommandLine();
} // namespace Torvane::Bridge
