#pragma once

/// \file
/// The assembly part of `RunInExceptionFrame`; used there alone.

extern "C"
{
/// Registers a frame, calls `function(context)`, removes the frame. \return 1, or 0 after an exception.
int __cdecl TorvaneRunInFrame(void (*function)(void* context), void* context);

/// Unwinds all frames inside `frame`, and makes the `TorvaneRunInFrame` that registered it return 0.
[[noreturn]] void __cdecl TorvaneLandInFrame(void* frame, void* exceptionRecord);
}
