/// \file
/// A source file that the library `Watched` and its patches are built of. WATCHED_BUILD is 0 in the library, and counts the
/// builds of a patch; the second has renamed a function.

#include "Watched.h"

namespace
{
/// Unchanged in all builds, so each has its own.
int Double(int value)
{
    return value * 2;
}
} // namespace

int Scale(int value)
{
    return Double(value) + WATCHED_BUILD * 1000;
}

#if WATCHED_BUILD < 2
int Shift(int value)
{
    return value + 1 + WATCHED_BUILD * 1000;
}
#else
int Renamed(int value)
{
    return value;
}
#endif
