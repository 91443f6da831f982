#pragma once

/// \file
/// Recordings, single Blobs and the tables of fields as text; for the command's only thread.

#include "tools/blobs/Filter.h"
#include "tools/blobs/Recording.h"

#include <string>

namespace Torvane::Blobs
{
/// A line for each Blob that passes. \param isWhole otherwise long lines are cut, with "...".
std::string ListBlobs(const Recording& recording, const Filter& filter, bool isWhole);

/// One Blob: each field beside its bytes, and what it refers to beside those.
/// \param isWhole otherwise only the first bytes of long fields are shown.
std::string ShowBlob(const RecordedBlob& blob, bool isWhole);

/// The table of fields of one Blob, or of all if there is none.
std::string ListLayouts(const Bridge::BlobLayout* layout);

/// At most `length` characters; what is longer ends in "...".
std::string Shortened(const std::string& text, size_t length);
} // namespace Torvane::Blobs
