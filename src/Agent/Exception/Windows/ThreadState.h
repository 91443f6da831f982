#pragma once

/// \file
/// What an exception handler may change of the thread that it interrupts, beside registers; that thread only.

#include <stdint.h>

#include <windows.h>

namespace Torvane
{
/// Gives the thread its last error and its floating-point state back.
///
/// After a floating-point fault the exception stays pending, and the next instruction of the unit would raise it
/// again. As long as this lives, the thread computes in the default state: empty registers, no exception pending, all
/// exceptions masked. Handlers that come later find what was there before. What a continued thread computes with comes
/// from its `CONTEXT` and isn't touched.
class ScopedThreadState
{
public:
    ScopedThreadState()
    {
        const uint32_t defaultControl = 0x1F80; // all exceptions masked, none pending, round to nearest
        __asm__ volatile(
            "fnsave %0\n\t" // raises nothing that is pending, and leaves the unit as after FNINIT
            "stmxcsr %1\n\t"
            "ldmxcsr %2"
            : "=m"(x87), "=m"(sse)
            : "m"(defaultControl));
    }

    ~ScopedThreadState()
    {
        __asm__ volatile(
            "ldmxcsr %1\n\t"
            "frstor %0" // pending exceptions included: the next instruction of the unit raises them
            :
            : "m"(x87), "m"(sse));
        SetLastError(lastError);
    }

    ScopedThreadState(const ScopedThreadState&) = delete;
    ScopedThreadState& operator=(const ScopedThreadState&) = delete;

    const DWORD lastError = GetLastError();

private:
    uint8_t x87[108]; ///< in the form of `FNSAVE`
    uint32_t sse;     ///< control and status
};
} // namespace Torvane
