#pragma once

/// \file
/// The functions of the OS and of the runtime that the Agent's library imports or resolves, and how each of them fails;
/// constants, any thread.

#include <stddef.h>
#include <stdint.h>

namespace Torvane::Faults
{
struct Function
{
    const char* name;
    uint16_t argumentBytes; ///< that the function removes from the stack
    uint32_t result;        ///< of the failure
    uint32_t lastError;
    bool resolved; ///< at run time, by `GetProcAddress`
};

/// Functions that aren't made to fail.
struct LeftOut
{
    const char* reason;
    const char* names; ///< each followed by a blank
};

template<typename Row>
struct Rows
{
    template<size_t Count>
    Rows(const Row (&rows)[Count])
        : first(rows)
        , last(rows + Count)
    {
    }

    const Row* begin() const
    {
        return first;
    }

    const Row* end() const
    {
        return last;
    }

private:
    const Row* first;
    const Row* last;
};

Rows<Function> GetFunctions();
Rows<LeftOut> GetLeftOut();
} // namespace Torvane::Faults
