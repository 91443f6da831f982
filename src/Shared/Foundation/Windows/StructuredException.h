#pragma once

/// \file
/// A structured exception frame around a call, for a compiler whose `__try` catches nothing. Any thread.

namespace Torvane
{
/// Calls `function(context)` in a frame that accepts every exception, hardware's and software's, language runtimes'
/// included. Frames nest. What the function's callees hold is unwound by their own frames, as the OS does it.
/// The floating-point units are as before in either case: same control, nothing pending, no values in the older one.
/// \return true if the function returned, false if an exception reached the frame.
bool RunInExceptionFrame(void (*function)(void* context), void* context);
} // namespace Torvane
