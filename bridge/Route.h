#pragma once

/// \file
/// Redirects functions of the host by jumps; for the thread that waits on the session's link.

#include "bridge/RemoteAddress.h"
#include "bridge/Result.h"
#include "bridge/Session.h"

#include <array>
#include <stdint.h>
#include <vector>

namespace Torvane::Bridge
{
/// Size in bytes of a jump to any address in 32-bit code.
constexpr uint32_t jumpSize = 5;
using JumpCode = std::array<uint8_t, jumpSize>;

struct Redirection
{
    RemoteAddress from; ///< a function of at least `jumpSize` bytes
    RemoteAddress to;   ///< the function that is called in its place from now on
};

/// A function that was redirected, with what that takes to be undone.
struct RoutedFunction
{
    RemoteAddress from;
    JumpCode oldCode;
    JumpCode jump;
};

/// Writes a jump over the first bytes of each function, with a few Blobs for all of them. The host's threads have to be
/// suspended; they are resumed briefly as long as one is inside of these bytes, for a limited number of times.
///
/// Pages are made writable and back to what they were. Nothing is written unless everything can be: an address that isn't
/// code of the host, functions that overlap, and pages that stay read-only are refused. If it fails later than that, by the
/// loss of the link, the functions may or may not be redirected.
/// \param milliseconds for each wait for the Agent.
Result<std::vector<RoutedFunction>> Route(Session& session, const std::vector<Redirection>& functions,
                                          uint32_t milliseconds);

/// The same for one function.
Result<RoutedFunction> Route(Session& session, RemoteAddress from, RemoteAddress to, uint32_t milliseconds);

/// Puts the old code back, in the same way. A function that was redirected again since is refused: the later redirection
/// is undone first.
Result<> Undo(Session& session, const std::vector<RoutedFunction>& functions, uint32_t milliseconds);
} // namespace Torvane::Bridge
