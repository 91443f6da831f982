#pragma once

/// \file
/// Writes every Blob of a link into a file; one call turns it on. Windows; what isn't said otherwise is for the
/// thread that makes the link, before it connects.
///
///     Link link(hostProcessId);
///     if (!RecordLink(link, L"reload.jsonl")) ...
///
/// A line has reached the OS when the Blob is given to whoever waits for it, or before it is sent: a Bridge that
/// crashes leaves a recording of all that it knew. The command `blobs` reads recordings.

#include "bridge/Link.h"

#include <string>

namespace Torvane::Bridge
{
/// Records this link from now on, until it is destroyed. \param path of a file that doesn't exist yet.
/// \return false, and records nothing, if the file can't be made. If it can't be written any more later, the
/// recording ends there and the link goes on.
bool RecordLink(Link& link, const std::wstring& path);

/// Records all links that this process makes from now on in one file, with one clock. If the file exists, a number
/// is put before its extension: "reload.2.jsonl". To be called once, while no other thread makes links.
bool RecordEveryLink(const std::wstring& path);

/// `RecordEveryLink` for the file that the environment variable `TORVANE_BRIDGE_RECORDING` names.
/// \return false only if a recording is wanted and can't be made.
bool RecordEveryLinkIfAsked();
} // namespace Torvane::Bridge
