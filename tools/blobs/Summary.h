#pragma once

/// \file
/// Formats the fields of a Blob in a line, with those first that a reader looks for; for the command's only thread.

#include "tools/blobs/Recording.h"

#include <string>

namespace Torvane::Blobs
{
/// Fields of one type, as paths such as "record.code", up to the first null.
struct KeyFields
{
    static constexpr size_t most = 4;

    BlobType type;
    const char* paths[most + 1];
};

/// The fields of a type that come first in its summary.
const KeyFields& KeyFieldsOf(BlobType type);

/// The key fields of a Blob, then its others: `patchPath="C:\\p.dll" base=0x72340000 imageSize=4096 ...`
/// \param longestText of the strings of key fields: longer ones, such as paths, lose their beginning.
std::string SummaryOf(const RecordedBlob& blob, size_t longestText = SIZE_MAX);
} // namespace Torvane::Blobs
