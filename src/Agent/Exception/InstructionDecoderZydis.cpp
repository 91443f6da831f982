// The decoder's interface, implemented with Zydis.

#include "Agent/Exception/InstructionDecoder.h"

#include <Zydis/Zydis.h>
#include <string.h>

namespace Torvane
{
void StartupInstructionDecoder()
{
    // Its tables are constant.
}

DecodedInstruction DecodeInstruction(const uint8_t* code)
{
    ZydisDecoder decoder;
    ZydisDecoderInit(&decoder, ZYDIS_MACHINE_MODE_LEGACY_32, ZYDIS_STACK_WIDTH_32);

    DecodedInstruction result = {};
    ZydisDecodedInstruction instruction;
    if (ZYAN_SUCCESS(
            ZydisDecoderDecodeInstruction(&decoder, nullptr, code, longestInstruction, &instruction)))
    {
        memcpy(result.bytes, code, sizeof(result.bytes));
        result.length = instruction.length;
    }
    return result;
}
} // namespace Torvane
