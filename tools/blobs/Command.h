#pragma once

/// \file
/// The command `blobs`; for the main thread.

#include <string>
#include <vector>

namespace Torvane::Blobs
{
constexpr int success = 0;
constexpr int failure = 1;    ///< a file that can't be read, isn't a recording, or can't be written
constexpr int wrongUsage = 2; ///< an unknown or invalid argument

/// The output of a run.
struct Outcome
{
    int exitCode = success;
    std::string output;
    std::string error; ///< empty, or a sentence with a line feed
};

/// \param arguments UTF-8, without the program's name.
Outcome RunCommand(const std::vector<std::string>& arguments);
} // namespace Torvane::Blobs
