#pragma once

/// \file
/// Code that does nothing, of each length that an instruction can have; pure, any thread.

#include <stdint.h>

namespace Torvane
{
/// \param length in bytes, 0 to 15; not checked.
/// \return that many bytes of code, null for 0. The forms are those that Intel's Software Developer's Manual
/// recommends for NOP; from 9 bytes on there are two instructions.
const uint8_t* GetNopSequence(uint8_t length);
} // namespace Torvane
