#pragma once

/// \file
/// What this process sends to its debugger, caught before a debugger receives it; for the thread that runs the test.

#include <string>
#include <vector>

namespace Torvane::Testing
{
/// Catches the output of all threads as long as it lives.
class DebugOutput
{
public:
    DebugOutput();
    ~DebugOutput();
    DebugOutput(const DebugOutput&) = delete;
    DebugOutput& operator=(const DebugOutput&) = delete;

    /// The strings so far, one for each call of `OutputDebugStringA`.
    std::vector<std::string> Texts() const;

private:
    void* handler;
};
} // namespace Torvane::Testing
