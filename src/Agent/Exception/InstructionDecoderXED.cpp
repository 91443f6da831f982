// The decoder's interface, implemented with Intel XED.

#include "Agent/Exception/InstructionDecoder.h"

#include <string.h>

extern "C"
{
#include <xed/xed-interface.h>
}

namespace Torvane
{
namespace
{
/// One more than callers have; the decoder never looks at more than 15 bytes.
constexpr unsigned int decodedSize = longestInstruction + 1;
} // namespace

void StartupInstructionDecoder()
{
    xed_tables_init();
}

DecodedInstruction DecodeInstruction(const uint8_t* code)
{
    xed_state_t state = {};
    state.mmode = XED_MACHINE_MODE_LEGACY_32;
    state.stack_addr_width = XED_ADDRESS_WIDTH_32b;
    xed_decoded_inst_t instruction;
    xed_decoded_inst_zero_set_mode(&instruction, &state);

    DecodedInstruction result = {};
    const xed_error_enum_t error = xed_decode(&instruction, code, decodedSize);
    const xed_uint_t length = xed_decoded_inst_get_length(&instruction);
    if (error == XED_ERROR_NONE && length != 0)
    {
        memcpy(result.bytes, code, sizeof(result.bytes));
        result.length = static_cast<uint8_t>(length);
    }
    return result;
}
} // namespace Torvane
