#pragma once

/// \file
/// Formats recordings, single Blobs and the tables of fields as text; for the command's only thread.

#include "tools/blobs/Filter.h"
#include "tools/blobs/Recording.h"

#include <string>

namespace Torvane::Blobs
{
/// A line for each Blob that passes. \param isWhole if false, long lines are truncated, with "...".
std::string ListBlobs(const Recording& recording, const Filter& filter, bool isWhole);

/// One Blob: the bytes of each field and of the data that it refers to, with name and value.
/// \param isWhole if false, only the first bytes of long fields are shown.
std::string ShowBlob(const RecordedBlob& blob, bool isWhole);

/// The table of fields of one Blob, or of all Blobs if none is specified.
std::string ListLayouts(const Bridge::BlobLayout* layout);

/// Truncated to `length` characters; a longer string ends in "...".
std::string Shortened(const std::string& text, size_t length);
} // namespace Torvane::Blobs
