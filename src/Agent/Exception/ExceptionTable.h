#pragma once

/// \file
/// What the system knows of hardware-style exceptions: which codes it takes, and their texts; pure, any thread.

#include "Agent/Exception/ExceptionRecord.h"

#include <stdint.h>

namespace Torvane
{
/// More about a memory fault.
struct ExceptionDetail
{
    const char* text; ///< null if there are no details
    uint64_t address; ///< 0 if there are no details
};

/// \return whether the code is one of the 23 in the table.
bool IsKnownExceptionCode(uint32_t code);

/// The name as the OS's headers spell it, such as "EXCEPTION_BREAKPOINT"; null for an unknown code.
const char* GetExceptionName(uint32_t code);

/// One sentence without a full stop at its end; null for an unknown code.
const char* GetExceptionDescription(uint32_t code);

/// \param flags the `ExceptionFlags` of the record.
/// \return false exactly for the value 1, `EXCEPTION_NONCONTINUABLE`: the bit among others doesn't count.
bool IsExceptionContinuable(uint32_t flags);

/// For a memory fault (0xC0000005 or 0xC0000006) that has any parameter: what was tried, and at which address.
/// The second parameter is taken for the address even when there is only one. Published with `EXCEPTION_RECORD`:
/// the first parameter is 0 for a read, 1 for a write and 8 for an execution; others give no detail.
ExceptionDetail GetExceptionDetail(uint32_t code, const EXCEPTION_RECORD& record);
} // namespace Torvane
