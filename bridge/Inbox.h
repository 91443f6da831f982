#pragma once

/// \file
/// The Blobs that a link has received, and the handlers to which some of them are passed (see `Link`); any thread adds, one
/// thread takes if there are handlers.

#include "bridge/Message.h"

#include <deque>
#include <functional>
#include <memory>
#include <stdint.h>
#include <vector>

#include <windows.h>

namespace Torvane::Bridge
{
/// Limits are in milliseconds.
class Inbox
{
public:
    using Handler = std::function<void(const Message&)>;
    using Condition = std::function<bool(const Message&)>;

    void Add(Message message);

    /// Nothing is added any more.
    void Close();
    bool IsClosed();

    /// \param inRunAlone whether `ServeAll` alone calls it.
    void Serve(BlobType type, Handler handler, bool inRunAlone);
    void ServeSilence(uint32_t milliseconds, std::function<void()> handler);

    /// Serves until there is a Blob for which `isWanted` returns true, and removes that. Empty after the limit, or if the
    /// inbox is closed and has none.
    Message Take(uint32_t milliseconds, const Condition& isWanted);

    /// `Take` for any Blob that has no handler which this call could have called.
    Message TakeUnserved(uint32_t milliseconds);

    /// Calls all handlers, and drops Blobs without one. Returns after the limit, or once the inbox is closed and empty.
    void ServeAll(uint32_t milliseconds);

private:
    struct Server
    {
        BlobType type;
        Handler handler;
        bool inRunAlone;
        bool isActive; ///< the handler hasn't returned
    };

    // All of these with the lock owned.
    Message TakeOrServe(uint32_t milliseconds, const Condition& isWanted, bool inRun);
    std::shared_ptr<Server> FindServer(BlobType type, bool inRun) const;
    bool IsServed(BlobType type) const;
    void CallUnlocked(const std::function<void()>& function);
    void WaitForChange(uint32_t milliseconds);

    SRWLOCK lock = SRWLOCK_INIT;
    CONDITION_VARIABLE changed = CONDITION_VARIABLE_INIT;
    std::deque<Message> messages;
    bool isClosed = false;
    std::vector<std::shared_ptr<Server>> servers;
    std::function<void()> silenceHandler;
    uint32_t silence = INFINITE;
};
} // namespace Torvane::Bridge
