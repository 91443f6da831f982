#pragma once

/// \file
/// The command `blobs`; for the main thread.

#include <string>
#include <vector>

namespace Torvane::Blobs
{
constexpr int success = 0;
constexpr int failure = 1;    ///< a file that can't be read, isn't a recording, or can't be written
constexpr int wrongUsage = 2; ///< an argument that there isn't, or that doesn't fit

/// Everything that a run says.
struct Outcome
{
    int exitCode = success;
    std::string output;
    std::string error; ///< a sentence with its line's end, or nothing
};

/// \param arguments UTF-8, without the program's name.
Outcome RunCommand(const std::vector<std::string>& arguments);
} // namespace Torvane::Blobs
