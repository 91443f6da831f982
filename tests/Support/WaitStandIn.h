#pragma once

/// \file
/// Lets waits for one object end as a test says. Tests only.

#include "tests/Support/TestImport.h"

#include <vector>

namespace Torvane
{
/// Waits for other objects go to the OS.
class WaitStandIn
{
public:
    WaitStandIn(HANDLE waitedFor, DWORD waitResult)
        : object(waitedFor)
        , result(waitResult)
    {
    }

    /// \return the time-outs of the waits so far, in milliseconds.
    const std::vector<DWORD>& GetTimeOuts() const
    {
        return timeOuts;
    }

private:
    struct Answer
    {
        WaitStandIn& standIn;

        DWORD operator()(decltype(&WaitForSingleObject) real, HANDLE object, DWORD milliseconds) const
        {
            if (object != standIn.object)
            {
                return real(object, milliseconds);
            }
            standIn.timeOuts.push_back(milliseconds);
            return standIn.result;
        }
    };

    HANDLE object;
    DWORD result;
    std::vector<DWORD> timeOuts;
    TestImport<Answer> wait{"WaitForSingleObject", Answer{*this}};
};
} // namespace Torvane
