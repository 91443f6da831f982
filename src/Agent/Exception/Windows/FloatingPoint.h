#pragma once

/// \file
/// A usable floating-point unit inside an exception handler; each object belongs to the thread that made it.

#include <stdint.h>

namespace Torvane
{
/// State of the x87 unit in the form of `FNSAVE`, and the control and status of SSE.
struct FloatingPointState
{
    uint8_t x87[108];
    uint32_t sse;
};
static_assert(sizeof(FloatingPointState) == 112);
} // namespace Torvane

extern "C"
{
/// Stores the thread's state and puts the default in its place: empty registers, no exception pending, all
/// exceptions masked.
void __cdecl TorvaneSetFloatingPointAside(Torvane::FloatingPointState* state);

/// Brings a stored state back, pending exceptions included: the next instruction of the unit raises them.
void __cdecl TorvaneRestoreFloatingPoint(const Torvane::FloatingPointState* state);
}

namespace Torvane
{
/// After a floating-point fault the exception stays pending, and the next instruction of the unit would raise it
/// again. As long as this lives, the thread computes in the default state; handlers that come later find what was
/// there before. What a continued thread computes with comes from its `CONTEXT` and isn't touched.
class DefaultFloatingPoint
{
public:
    DefaultFloatingPoint()
    {
        TorvaneSetFloatingPointAside(&state);
    }

    ~DefaultFloatingPoint()
    {
        TorvaneRestoreFloatingPoint(&state);
    }

    DefaultFloatingPoint(const DefaultFloatingPoint&) = delete;
    DefaultFloatingPoint& operator=(const DefaultFloatingPoint&) = delete;

private:
    FloatingPointState state;
};
} // namespace Torvane
