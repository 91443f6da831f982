#pragma once

/// \file
/// The exceptions that are reported, as tests expect them. Plain data.

#include <stdint.h>

namespace Torvane::Testing
{
/// One exception with its texts in the log.
struct TestException
{
    uint32_t code;
    const char* name;
    const char* description;
};

constexpr TestException testExceptions[] = {
    {0x80000001, "EXCEPTION_GUARD_PAGE", "The thread accessed memory allocated with the PAGE_GUARD modifier"},
    {0x80000002, "EXCEPTION_DATATYPE_MISALIGNMENT",
     "The thread tried to read or write data that is misaligned"},
    {0x80000003, "EXCEPTION_BREAKPOINT", "A breakpoint was encountered"},
    {0x80000004, "EXCEPTION_SINGLE_STEP",
     "A trace trap or other single-instruction mechanism signaled that one instruction has been executed"},
    {0xC0000005, "EXCEPTION_ACCESS_VIOLATION",
     "The thread tried to read from or write to a virtual address for which it does not have the appropriate "
     "access"},
    {0xC0000006, "EXCEPTION_IN_PAGE_ERROR",
     "The thread tried to access a page that was not present, and the system was unable to load the page. "
     "For example, this exception might occur if a network connection is lost while running a program over "
     "the network"},
    {0xC0000008, "EXCEPTION_INVALID_HANDLE",
     "The thread used a handle to a kernel object that was invalid (probably because it had been closed)"},
    {0xC000001D, "EXCEPTION_ILLEGAL_INSTRUCTION", "The thread tried to execute an invalid instruction"},
    {0xC0000025, "EXCEPTION_NONCONTINUABLE_EXCEPTION",
     "The thread tried to continue execution after a non-continuable exception occurred"},
    {0xC0000026, "EXCEPTION_INVALID_DISPOSITION",
     "An exception handler returned an invalid disposition to the exception dispatcher"},
    {0xC000008C, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED",
     "The thread tried to access an array element that is out of bounds"},
    {0xC000008D, "EXCEPTION_FLT_DENORMAL_OPERAND",
     "One of the operands in a floating-point operation is denormal"},
    {0xC000008E, "EXCEPTION_FLT_DIVIDE_BY_ZERO",
     "The thread tried to divide a floating-point value by a floating-point divisor of zero"},
    {0xC000008F, "EXCEPTION_FLT_INEXACT_RESULT",
     "The result of a floating-point operation cannot be represented exactly as a decimal fraction"},
    {0xC0000090, "EXCEPTION_FLT_INVALID_OPERATION",
     "The thread tried to execute an invalid floating-point operation"},
    {0xC0000091, "EXCEPTION_FLT_OVERFLOW",
     "The exponent of a floating-point operation is greater than the magnitude allowed by the corresponding "
     "type"},
    {0xC0000092, "EXCEPTION_FLT_STACK_CHECK",
     "The stack overflowed or underflowed as the result of a floating-point operation"},
    {0xC0000093, "EXCEPTION_FLT_UNDERFLOW",
     "The exponent of a floating-point operation is less than the magnitude allowed by the corresponding "
     "type"},
    {0xC0000094, "EXCEPTION_INT_DIVIDE_BY_ZERO",
     "The thread tried to divide an integer value by an integer divisor of zero"},
    {0xC0000095, "EXCEPTION_INT_OVERFLOW",
     "The result of an integer operation caused a carry out of the most significant bit of the result"},
    {0xC0000096, "EXCEPTION_PRIV_INSTRUCTION",
     "The thread tried to execute an instruction whose operation is not allowed in the current machine mode"},
    {0xC00000FD, "EXCEPTION_STACK_OVERFLOW", "The thread used up its stack"},
    {0xC0000194, "EXCEPTION_POSSIBLE_DEADLOCK",
     "Wait operation on a critical section timed out, possible deadlock"},
};
} // namespace Torvane::Testing
