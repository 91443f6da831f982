#pragma once

/// \file
/// Recordings in forms for other programs to show: trace events, and a page for a browser; for the command's only
/// thread.

#include "tools/blobs/Filter.h"
#include "tools/blobs/Operations.h"
#include "tools/blobs/Recording.h"

#include <string>

namespace Torvane::Blobs
{
/// JSON in the trace-event format that the trace viewers of browsers read: a process for each host, a thread for
/// each track, spans as complete events, Blobs as instants. Times are in microseconds.
std::string MakeTrace(const Recording& recording, const Filter& filter);

/// A page that needs nothing but itself: a timeline of the same spans and Blobs, a table and single Blobs.
/// \param title shown on top, the recording's file name.
std::string MakePage(const Recording& recording, const Filter& filter, const std::string& title);

/// Whether a span is wanted: one of the Blobs at its ends passes the filter.
bool IsSpanChosen(const Recording& recording, const Filter& filter, const Span& span);
} // namespace Torvane::Blobs
