#pragma once

/// \file
/// Records every Blob of a link in a file. Windows. Unless stated otherwise, for the thread that creates the link, before
/// it connects.
///
///     Link link(hostProcessId);
///     if (!RecordLink(link, L"reload.jsonl")) ...
///
/// A Blob's line is written before the Blob is sent, or before it can be received from the inbox: a Bridge that crashes
/// leaves a complete recording. The command `blobs` reads recordings.

#include "bridge/Link.h"

#include <string>

namespace Torvane::Bridge
{
/// Records this link from now on, until it is destroyed. \param path of a file that doesn't exist yet.
/// \return false, and records nothing, if the file can't be created. If a later write fails, the recording ends there
/// and the link continues.
bool RecordLink(Link& link, const std::wstring& path);

/// Records all links that this process creates from now on in one file, with one clock. If the file exists, a number
/// is inserted before its extension: "reload.2.jsonl". To be called once, while no other thread creates links.
bool RecordEveryLink(const std::wstring& path);

/// `RecordEveryLink` for the file that the environment variable `TORVANE_BRIDGE_RECORDING` names.
/// \return false if the variable is set and the file can't be created.
bool RecordEveryLinkIfRequested();
} // namespace Torvane::Bridge
