#include "bridge/Inbox.h"

#include "bridge/Deadline.h"
#include "bridge/ScopedLock.h"

#include <algorithm>
#include <utility>

namespace Torvane::Bridge
{
void Inbox::Add(Message message)
{
    const ScopedLock scope(lock);
    messages.push_back(std::move(message));
    WakeAllConditionVariable(&changed);
}

void Inbox::Close()
{
    const ScopedLock scope(lock);
    isClosed = true;
    WakeAllConditionVariable(&changed);
}

bool Inbox::IsClosed()
{
    const ScopedLock scope(lock);
    return isClosed;
}

void Inbox::Serve(BlobType type, Handler handler, bool inRunAlone)
{
    const ScopedLock scope(lock);
    servers.erase(std::remove_if(servers.begin(), servers.end(),
                                 [type](const auto& server) { return server->type == type; }),
                  servers.end());
    if (handler)
    {
        servers.push_back(std::make_shared<Server>(Server{type, std::move(handler), inRunAlone, false}));
    }
}

void Inbox::ServeSilence(uint32_t milliseconds, std::function<void()> handler)
{
    const ScopedLock scope(lock);
    silence = handler ? milliseconds : INFINITE;
    silenceHandler = std::move(handler);
}

Message Inbox::Take(uint32_t milliseconds, const Condition& isWanted)
{
    const ScopedLock scope(lock);
    return TakeOrServe(milliseconds, isWanted, false);
}

Message Inbox::TakeUnserved(uint32_t milliseconds)
{
    const ScopedLock scope(lock);
    return TakeOrServe(
        milliseconds, [this](const Message& message) { return !IsServed(message.Type()); }, false);
}

void Inbox::ServeAll(uint32_t milliseconds)
{
    const ScopedLock scope(lock);
    (void)TakeOrServe(
        milliseconds, [](const Message&) { return false; }, true);
}

Message Inbox::TakeOrServe(uint32_t milliseconds, const Condition& isWanted, bool inRun)
{
    const Deadline deadline(milliseconds);
    for (;;)
    {
        const auto found = std::find_if(messages.begin(), messages.end(), [&](const Message& message) {
            return inRun || isWanted(message) || FindServer(message.Type(), inRun) != nullptr;
        });
        if (found != messages.end())
        {
            Message message = std::move(*found);
            messages.erase(found);
            if (isWanted(message))
            {
                return message;
            }
            if (const auto server = FindServer(message.Type(), inRun))
            {
                server->isActive = true;
                CallUnlocked([&] { server->handler(message); });
                server->isActive = false;
            }
            continue;
        }
        if (isClosed)
        {
            return Message::None("the Agent has closed its pipe");
        }
        const uint32_t remaining = deadline.Remaining();
        if (remaining == 0)
        {
            return Message::None("it hasn't arrived within " + std::to_string(milliseconds) +
                                 " milliseconds");
        }
        WaitForChange(remaining);
    }
}

/// The one that takes a Blob of that type now; null if there is none.
std::shared_ptr<Inbox::Server> Inbox::FindServer(BlobType type, bool inRun) const
{
    const auto found = std::find_if(servers.begin(), servers.end(), [=](const auto& server) {
        return server->type == type && !server->isActive && (inRun || !server->inRunAlone);
    });
    return found == servers.end() ? nullptr : *found;
}

/// Whether a wait serves Blobs of that type, now or when the handler has returned.
bool Inbox::IsServed(BlobType type) const
{
    return std::any_of(servers.begin(), servers.end(),
                       [type](const auto& server) { return server->type == type && !server->inRunAlone; });
}

void Inbox::CallUnlocked(const std::function<void()>& function)
{
    ReleaseSRWLockExclusive(&lock);
    function();
    AcquireSRWLockExclusive(&lock);
}

/// For at most `milliseconds`.
void Inbox::WaitForChange(uint32_t milliseconds)
{
    const bool canBeSilent = silenceHandler && silence <= milliseconds;
    if (!SleepConditionVariableSRW(&changed, &lock, canBeSilent ? silence : milliseconds, 0) && canBeSilent)
    {
        const std::function<void()> handler = silenceHandler; // it may replace itself
        CallUnlocked(handler);
    }
}
} // namespace Torvane::Bridge
