#pragma once

/// \file
/// The Bridge's end of the two pipes to one Agent, and the dispatch of what the Agent sends; any thread may send, and
/// receive.

#include "Agent/Protocol/Names.h"
#include "bridge/Message.h"
#include "bridge/Result.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Torvane::Bridge
{
/// Connects to an Agent, reads every Blob that it sends into an inbox, writes Blobs to it, and serves what the Agent sends
/// by itself.
///
/// Once connected, the link's own thread reads the agent pipe continuously. Blobs stay in the inbox, in the order of
/// arrival, until they are received or served. Limits are in milliseconds.
///
/// A handler (`Serve`) is called by a thread that waits for something else: so a thread of the host that has faulted, or
/// that waits for its modules to be enabled, doesn't wait until the Bridge has finished its work. A handler may send and
/// wait; meanwhile the others are called, and Blobs of its own type stay in the inbox until it has returned. Handlers are
/// registered before the first wait, and with handlers one thread alone waits.
class Link
{
public:
    /// Called for each Blob in both directions, after it was read or before it is written, one at a time, on the
    /// reading or the sending thread. It may not send.
    using Observer = std::function<void(const Message&)>;
    using Handler = std::function<void(const Message&)>;

    /// Doesn't connect. \param hostProcessId the process whose Agent this is for; it is part of the pipes' names.
    explicit Link(uint32_t hostProcessId);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    uint32_t HostProcessId() const;

    /// Adds an observer. To be called before connecting.
    void Observe(Observer observer);

    /// Opens both pipes, retries while they don't exist or are in use, and starts reading. Fails after the limit.
    Result<> Connect(uint32_t milliseconds);

    /// Sends the Bridge's `Version` and receives the Agent's. Fails if that doesn't arrive within the limit or is another
    /// version.
    Result<> ExchangeVersion(uint32_t milliseconds, const char* version = apiVersion);

    /// Sends bytes as one message of the pipe. \return false if the pipe is closed.
    bool Send(const std::vector<uint8_t>& bytes);

    // Handlers

    /// Has each Blob of a type passed to a handler, by whoever waits: in each of the waits below, for as long as they
    /// last. A wait for that type itself takes the Blob instead. Replaces an earlier handler of the type; null removes it.
    void Serve(BlobType type, Handler handler);

    /// As `Serve`, but by `Run` alone: for requests of the host that are executed one after the other.
    void ServeInRun(BlobType type, Handler handler);

    /// As above, for one type whose fixed part is `Record`. A Blob that is too short is dropped.
    template<typename Record>
    void Serve(std::function<void(const Received<Record>&)> handler, BlobType type = Record::type)
    {
        Serve(type, ForRecord<Record>(std::move(handler)));
    }

    template<typename Record>
    void ServeInRun(std::function<void(const Received<Record>&)> handler, BlobType type = Record::type)
    {
        ServeInRun(type, ForRecord<Record>(std::move(handler)));
    }

    /// Sets a function that a wait calls whenever no Blob has arrived for that time. Null removes it.
    void ServeSilence(uint32_t milliseconds, std::function<void()> handler);

    /// Serves until the Agent closes its pipe. Blobs without a handler are dropped.
    void Run();

    /// The same, for a limited time. \return whether the Agent has closed its pipe.
    bool RunFor(uint32_t milliseconds);

    // Waits

    /// Removes the first Blob from the inbox. Empty after the limit, or if the inbox is empty and the pipe is closed.
    Message Receive(uint32_t milliseconds);

    /// As `Receive`, for the first Blob of one of these types. Others stay in the inbox.
    Message WaitForOneOf(const std::vector<BlobType>& types, uint32_t milliseconds);

    /// As `Receive`, for the first Blob for which `isWanted` returns true. It is called while the inbox is locked.
    Message WaitForMatch(const std::function<bool(const Message&)>& isWanted, uint32_t milliseconds);

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

protected:
    /// The two halves of `Connect`.
    Result<> ConnectAgentPipe(uint32_t milliseconds);
    Result<> ConnectBridgePipe(uint32_t milliseconds);

private:
    /// Sets a function that is called at the end of the constructor of each link. To be called before the first link
    /// is created.
    static void OnEveryLink(std::function<void(Link&)> function);
    friend bool RecordEveryLink(const std::wstring& path);

    template<typename Record>
    static Handler ForRecord(std::function<void(const Received<Record>&)> handler)
    {
        return [handler = std::move(handler)](const Message& message) {
            if (const Received<Record> received{message})
            {
                handler(received);
            }
        };
    }

    struct State;
    std::unique_ptr<State> state;
};

/// The reason if `Link::Send` has returned false.
Failure ClosedPipe();

/// The process id of the host, from this process's command line: an Agent passes it as the only argument. If there are
/// several, the last one is used. 0 if there is none.
uint32_t HostProcessIdFromCommandLine();
} // namespace Torvane::Bridge
