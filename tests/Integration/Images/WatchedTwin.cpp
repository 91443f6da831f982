/// \file
/// A second static function of a name.

#include "Watched.h"

static int Twin(int value) asm("_Twin"); // as the linker knows one that is written in C

__attribute__((noinline)) static int Twin(int value)
{
    return value * 3;
}

int CallTwin(int value)
{
    return Twin(value);
}
