#pragma once

/// \file
/// Code on which a thread can be parked from outside. Nothing here calls it.

extern "C"
{
/// Two bytes, EB FE: a jump to itself. A thread whose instruction pointer is set here runs in place, touches no
/// lock and no memory, and never returns. Mapped for as long as this image is.
[[noreturn]] void __cdecl SpinForever();
}
