#pragma once

/// \file
/// What this process tells its debugger, caught before a debugger could have it; made and asked by the thread that
/// runs the test.

#include <string>
#include <vector>

namespace Torvane::Testing
{
/// Catches the output of all threads from its making on.
class DebugOutput
{
public:
    DebugOutput();
    ~DebugOutput();
    DebugOutput(const DebugOutput&) = delete;
    DebugOutput& operator=(const DebugOutput&) = delete;

    /// The texts so far, one for each call of `OutputDebugStringA`.
    std::vector<std::string> Texts() const;

private:
    void* handler;
};
} // namespace Torvane::Testing
