#pragma once

/// \file
/// Functions that crash, and a place where a thread can be resumed; in assembly, so that each crash is one known
/// instruction. For the main thread.

#include <stdint.h>

namespace Torvane::Sample
{
/// Where a thread can be resumed. The stack is that of the latest `RunGuarded`.
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

/// Calls the function within an exception frame that handles nothing and can be unwound.
/// \return 1 if the function has returned, 0 if the thread was resumed at `resumed`.
int __cdecl RunGuarded(void(__cdecl* function)());

/// In the middle of `RunGuarded`.
extern const uint8_t resumed[];
}
