#pragma once

/// \file
/// Prints what the doctor finds, one line for each finding, and knows whether a problem was among them. One thread.

#include "tools/doctor/Findings.h"

#include <initializer_list>
#include <string>

namespace Torvane::Doctor
{
/// Prints UTF-8, unbuffered: another process may print to the same place afterwards. \param isError to standard error.
void Print(const std::string& text, bool isError = false);

/// The OS's words for one of its error codes, without a full stop.
std::string ErrorText(uint32_t code);

class Report
{
public:
    /// Prints the finding as a line. \param arguments what %1 and so on stand for, as UTF-8.
    void Add(Finding finding, std::initializer_list<std::string> arguments = {});

    /// Counts a problem that another process has printed.
    void AddPrintedProblem()
    {
        hasProblem = true;
    }

    bool HasProblem() const
    {
        return hasProblem;
    }

private:
    bool hasProblem = false;
};
} // namespace Torvane::Doctor
