#pragma once

/// \file
/// What crashes, and the place that a thread can be brought back to; in assembly, so that each crash is one known
/// instruction. For the main thread.

#include <stdint.h>

namespace Torvane::Sample
{
/// Where to go on for whoever resumes the thread. The stack is that of the latest `RunGuarded`.
struct ResumePlace
{
    uint32_t instructionPointer;
    uint32_t stackPointer;
    uint32_t framePointer;
};
static_assert(sizeof(ResumePlace) == 12);
} // namespace Torvane::Sample

extern "C"
{
    /// Divides 100 by 0. \return the quotient; 100 if the division is skipped.
    int __cdecl DivideByZero();

    /// \return after the write.
    void __cdecl WriteThroughNull();

    void __cdecl CallThroughBadPointer();

    /// Calls the function within an exception frame that handles nothing, but is there to be unwound.
    /// \return 1 when the function has returned, 0 when the thread was brought back to `resumed`.
    int __cdecl RunGuarded(void(__cdecl* function)());

    /// In the middle of `RunGuarded`.
    extern const uint8_t resumed[];
}
