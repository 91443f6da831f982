#include "Agent/Exception/InstructionDecoder.h"

namespace Torvane
{
uint8_t GetInstructionLength(const uint8_t* code)
{
    return DecodeInstruction(code).length;
}
} // namespace Torvane
