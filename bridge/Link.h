#pragma once

/// \file
/// The Bridge's end of the two pipes to one Agent; any thread may send and receive.

#include "bridge/Message.h"

#include <functional>
#include <memory>
#include <vector>

namespace Torvane::Bridge
{
/// Connects to an Agent, reads every Blob that it sends into an inbox, and writes Blobs to it.
///
/// A thread of the link's own reads the agent pipe from the connection on, whether anybody asks for Blobs or
/// not; what nobody has asked for stays in the inbox, in the order of arrival. Limits are in milliseconds.
class Link
{
public:
    /// Sees each Blob in both directions when it has been read or is about to be written, one at a time, on the
    /// reading or the sending thread. It may not send.
    using Observer = std::function<void(const Message&)>;

    /// Does nothing yet. \param hostProcessId the process whose Agent is meant; it names the pipes.
    explicit Link(uint32_t hostProcessId);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    uint32_t HostProcessId() const;

    /// Adds one more observer. To be called before connecting.
    void Observe(Observer observer);

    /// From now on calls this for each new link of the process, at the end of its making. For whoever comes before
    /// the links, while no other thread makes any.
    static void OnEveryLink(std::function<void(Link&)> function);

    /// Opens both pipes, tries again while they don't exist or are taken, and starts reading.
    /// \return whether both were opened within the limit.
    bool Connect(uint32_t milliseconds);

    /// The two halves of `Connect`, for tests that want just one.
    bool ConnectAgentPipe(uint32_t milliseconds);
    bool ConnectBridgePipe(uint32_t milliseconds);

    /// Sends the Bridge's `Version` and takes the Agent's.
    /// \return whether the Agent's came within the limit and names the same version.
    bool ExchangeVersion(uint32_t milliseconds, const char* version = apiVersion);

    /// Sends bytes as one message of the pipe. \return false if the pipe is gone or was never there.
    bool Send(const std::vector<uint8_t>& bytes);

    /// Takes the next Blob of any kind out of the inbox. Empty after the limit, or when the inbox is empty and
    /// the pipe is gone.
    Message Receive(uint32_t milliseconds);

    /// Takes the first Blob that is of one of these types out of the inbox and leaves all others there.
    Message ReceiveOneOf(const std::vector<BlobType>& types, uint32_t milliseconds);

    /// As `ReceiveOneOf`, for one type whose fixed part is `Record`. Also empty for a Blob that is too short.
    template<typename Record>
    Received<Record> Expect(uint32_t milliseconds, BlobType type = Record::type)
    {
        return Received<Record>(ReceiveOneOf({type}, milliseconds));
    }

    /// Whether the Agent's end of the agent pipe went away within the limit.
    bool WaitUntilClosed(uint32_t milliseconds);
    bool IsClosed() const;

    /// Stops reading and closes both pipes. What is in the inbox stays there.
    void Close();

    /// Seconds since the link was made.
    double Now() const;

private:
    struct State;
    std::unique_ptr<State> state;
};

/// The process id of the host from this process's command line, which an Agent fills with nothing else; with
/// further words in front of it, the last one counts. 0 if there is none.
uint32_t HostProcessIdFromCommandLine();
} // namespace Torvane::Bridge
