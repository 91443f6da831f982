#pragma once

/// \file
/// Selects Blobs of a recording; for the command's only thread.

#include "tools/blobs/Recording.h"

#include <set>
#include <string>

namespace Torvane::Blobs
{
struct Filter
{
    std::set<BlobType> types; ///< empty for all
    bool isFromAgentWanted = true;
    bool isToAgentWanted = true;
    double from = 0;   ///< seconds
    double to = 1e300; ///< seconds

    bool Passes(const RecordedBlob& blob) const;

    /// Adds types, by name in either case or number, separated by commas. \return false with the one that is unknown.
    bool AddTypes(const std::string& list, std::string& unknown);

    /// The Blobs of a recording that pass, in their order.
    std::vector<const RecordedBlob*> Choose(const Recording& recording) const;
};

/// Parses a whole number, or seconds, without other characters. \return false if the string is something else.
bool ParseNumber(const std::string& text, uint64_t& number);
bool ParseSeconds(const std::string& text, double& seconds);
} // namespace Torvane::Blobs
