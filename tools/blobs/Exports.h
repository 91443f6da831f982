#pragma once

/// \file
/// Exports recordings for other programs: as trace events, and as a page for a browser; for the command's only thread.

#include "tools/blobs/Filter.h"
#include "tools/blobs/Operations.h"
#include "tools/blobs/Recording.h"

#include <string>

namespace Torvane::Blobs
{
/// JSON in the trace-event format of browsers' trace viewers: a process for each host, a thread for each track, spans as
/// complete events, Blobs as instants. Times are in microseconds.
std::string MakeTrace(const Recording& recording, const Filter& filter);

/// A self-contained page: a timeline of the same spans and Blobs, a table, and the fields of single Blobs.
/// \param title the page's heading, the recording's file name.
std::string MakePage(const Recording& recording, const Filter& filter, const std::string& title);

/// Whether the first or the last Blob of a span passes the filter.
bool IsSpanChosen(const Recording& recording, const Filter& filter, const Span& span);
} // namespace Torvane::Blobs
