#include "bridge/Route.h"

#include "bridge/Commands.h"
#include "bridge/Requests.h"
#include "bridge/Text.h"

#include <algorithm>
#include <map>
#include <string.h>

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
constexpr RemoteAddress pageSize = 0x1000;
constexpr uint32_t attempts = 5; // to catch the threads outside of the bytes that are replaced
constexpr uint32_t pause = 5;    // milliseconds between these

/// Code that replaces what is at an address.
struct Change
{
    RemoteAddress address;
    JumpCode code;
};

/// The opcode E9 and the distance from the end of the instruction.
JumpCode MakeJump(RemoteAddress from, RemoteAddress to)
{
    const auto distance = static_cast<uint32_t>(to - (from + jumpSize));
    JumpCode jump = {0xE9};
    memcpy(jump.data() + 1, &distance, sizeof(distance));
    return jump;
}

Result<JumpCode> ReadCode(const HostProcess& host, RemoteAddress address)
{
    const std::vector<uint8_t> bytes = host.Read(address, jumpSize);
    if (bytes.empty() || !host.CanExecute(address, jumpSize))
    {
        return Failure{AddressText(address) + " isn't code of the host"};
    }
    JumpCode code = {};
    std::copy(bytes.begin(), bytes.end(), code.begin());
    return code;
}

Result<> CheckOverlap(std::vector<RemoteAddress> addresses)
{
    std::sort(addresses.begin(), addresses.end());
    const auto found =
        std::adjacent_find(addresses.begin(), addresses.end(),
                           [](RemoteAddress left, RemoteAddress right) { return right - left < jumpSize; });
    return found == addresses.end() ? Result<>()
                                    : Failure{"the functions at " + AddressText(*found) + " and " +
                                              AddressText(found[1]) + " overlap"};
}

/// Returns when no suspended thread is about to execute the second to fifth of the bytes of a change.
Result<> MoveThreadsOutside(Session& session, const std::vector<Change>& changes)
{
    std::vector<RemoteRange> ranges;
    ranges.reserve(changes.size());
    for (const Change& change : changes)
    {
        ranges.push_back({change.address + 1, jumpSize - 1});
    }
    for (uint32_t i = 0; i < attempts; ++i)
    {
        session.Threads().RunUntilOutside(ranges);
        if (!session.Threads().AnyAt(ranges))
        {
            return {};
        }
        session.ResumeThreads();
        Sleep(pause);
        Result<> suspended = session.SuspendThreads();
        if (!suspended)
        {
            return suspended;
        }
    }
    return Failure{"a thread of the host stays in the first bytes of a function that is to be replaced"};
}

/// The pages of all changes, each on its own, as they are now.
std::vector<WirePageRange> PagesOf(const HostProcess& host, const std::vector<Change>& changes)
{
    std::map<RemoteAddress, WirePageRange> pages;
    for (const Change& change : changes)
    {
        for (const RemoteAddress address : {change.address, change.address + jumpSize - 1})
        {
            const RemoteAddress page = address & ~(pageSize - 1);
            pages[page] = {page, pageSize, host.QueryPages(address).protection, 0};
        }
    }
    std::vector<WirePageRange> list;
    list.reserve(pages.size());
    for (const auto& [base, page] : pages)
    {
        list.push_back(page);
    }
    return list;
}

std::vector<WirePageRange> WithProtection(std::vector<WirePageRange> pages, uint32_t protection)
{
    for (WirePageRange& page : pages)
    {
        page.protection = protection;
    }
    return pages;
}

/// An Agent that writes to a page which can't be written doesn't survive it, and reports nothing about a protection that
/// couldn't be set: so it is looked at.
Result<> MakeWritable(Session& session, const std::vector<WirePageRange>& pages, uint32_t milliseconds)
{
    SendSetPageProtection(session.link, WithProtection(pages, PAGE_EXECUTE_READWRITE));
    Result<> executed = Fence(session.link, milliseconds);
    if (!executed)
    {
        return executed;
    }
    const auto isReadOnly = [&](const WirePageRange& page) {
        return (session.host.QueryPages(page.base).protection &
                (PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY)) == 0;
    };
    const auto found = std::find_if(pages.begin(), pages.end(), isReadOnly);
    if (found != pages.end())
    {
        SendSetPageProtection(session.link, pages);
        return Failure{"the page at " + AddressText(found->base) + " can't be made writable"};
    }
    return {};
}

Result<> Write(Session& session, const std::vector<Change>& changes, uint32_t milliseconds)
{
    std::vector<RemoteAddress> addresses;
    std::vector<uint8_t> data;
    for (const Change& change : changes)
    {
        addresses.push_back(change.address);
        data.insert(data.end(), change.code.begin(), change.code.end());
    }
    if (addresses.empty())
    {
        return {};
    }
    Result<> result = CheckOverlap(addresses);
    if (result)
    {
        result = MoveThreadsOutside(session, changes);
    }
    const std::vector<WirePageRange> pages = PagesOf(session.host, changes);
    if (result)
    {
        result = MakeWritable(session, pages, milliseconds);
    }
    if (!result)
    {
        return result;
    }
    SendWriteMemory(session.link, addresses, data);
    SendSetPageProtection(session.link, pages);
    SendFlushInstructionCache(session.link);
    return Fence(session.link, milliseconds);
}

/// The session can count them as suspended while they run: for a load, or because they couldn't be suspended again.
Result<> CheckThreads(Session& session)
{
    return session.AreThreadsSuspended() && session.Threads().Count() != 0
               ? Result<>()
               : Failure{"the host's threads aren't suspended"};
}
} // namespace

Result<std::vector<RoutedFunction>> Route(Session& session, const std::vector<Redirection>& functions,
                                          uint32_t milliseconds)
{
    Result<> suspended = CheckThreads(session);
    if (!suspended)
    {
        return suspended.Why();
    }
    std::vector<RoutedFunction> routed;
    std::vector<Change> changes;
    for (const Redirection& function : functions)
    {
        const Result<JumpCode> oldCode = ReadCode(session.host, function.from);
        const Result<JumpCode> target = ReadCode(session.host, function.to);
        if (!oldCode || !target)
        {
            return (oldCode ? target : oldCode).Why();
        }
        routed.push_back({function.from, *oldCode, MakeJump(function.from, function.to)});
        changes.push_back({function.from, routed.back().jump});
    }
    const Result<> written = Write(session, changes, milliseconds);
    if (!written)
    {
        return written.Why();
    }
    return routed;
}

Result<RoutedFunction> Route(Session& session, RemoteAddress from, RemoteAddress to, uint32_t milliseconds)
{
    const Result<std::vector<RoutedFunction>> routed = Route(session, {{from, to}}, milliseconds);
    if (!routed)
    {
        return routed.Why();
    }
    return routed->front();
}

Result<> Undo(Session& session, const std::vector<RoutedFunction>& functions, uint32_t milliseconds)
{
    Result<> suspended = CheckThreads(session);
    if (!suspended)
    {
        return suspended;
    }
    std::vector<Change> changes;
    for (const RoutedFunction& function : functions)
    {
        const Result<JumpCode> code = ReadCode(session.host, function.from);
        if (!code)
        {
            return code.Why();
        }
        if (*code != function.jump)
        {
            return Failure{"the function at " + AddressText(function.from) + " was changed since"};
        }
        changes.push_back({function.from, function.oldCode});
    }
    return Write(session, changes, milliseconds);
}
} // namespace Torvane::Bridge
