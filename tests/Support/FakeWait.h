#pragma once

/// \file
/// Waits for one object that return what a test specifies.

#include "tests/Support/FakeImport.h"

#include <vector>

namespace Torvane::Testing
{
/// Waits for other objects go to the OS.
class FakeWait
{
public:
    FakeWait(HANDLE waitedFor, DWORD waitResult)
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
        FakeWait& fake;

        DWORD operator()(decltype(&WaitForSingleObject) real, HANDLE object, DWORD milliseconds) const
        {
            if (object != fake.object)
            {
                return real(object, milliseconds);
            }
            fake.timeOuts.push_back(milliseconds);
            return fake.result;
        }
    };

    HANDLE object;
    DWORD result;
    std::vector<DWORD> timeOuts;
    FakeImport<Answer> wait{"WaitForSingleObject", Answer{*this}};
};
} // namespace Torvane::Testing
