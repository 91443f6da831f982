#pragma once

/// \file
/// The length of a 32-bit instruction. Any thread once the decoder is set up; allocates nothing, keeps its state on
/// the stack. Which decoder implements it is chosen when the build is configured.

#include <stdint.h>

namespace Torvane
{
/// The longest instruction that the architecture allows, in bytes.
constexpr uint32_t longestInstruction = 15;

struct DecodedInstruction
{
    uint8_t bytes[longestInstruction]; ///< as they were given, those after the instruction included
    uint8_t length;                    ///< bytes; 0 if nothing could be decoded, and all bytes are 0 then
};
static_assert(sizeof(DecodedInstruction) == 16);

/// Sets up the decoder's tables. Host's thread, at startup, before any other call here; again does no harm.
void StartupInstructionDecoder();

/// Decodes one instruction of 32-bit code.
/// \param code at least 15 readable bytes, whatever the length of the instruction.
DecodedInstruction DecodeInstruction(const uint8_t* code);

/// As above. \return the length in bytes, 0 if nothing could be decoded.
uint8_t GetInstructionLength(const uint8_t* code);
} // namespace Torvane
