#include "tests/Support/FakeXed/FakeXed.h"

namespace Torvane::Testing
{
namespace
{
FakeXed* current = nullptr;
} // namespace

FakeXed::FakeXed()
{
    current = this;
}

FakeXed::~FakeXed()
{
    current = nullptr;
}

FakeXed& FakeXed::Current()
{
    return *current;
}
} // namespace Torvane::Testing

using Torvane::Testing::FakeXed;

void xed_tables_init()
{
    ++FakeXed::Current().initializations;
}

void xed_decoded_inst_zero_set_mode(xed_decoded_inst_t* instruction, const xed_state_t* state)
{
    *instruction = {*state, 0};
}

xed_error_enum_t xed_decode(xed_decoded_inst_t* instruction, const xed_uint8_t* code, const unsigned int size)
{
    FakeXed& fake = FakeXed::Current();
    fake.decodings.push_back({instruction->mode.mmode, instruction->mode.stack_addr_width, code, size});
    instruction->length = fake.length;
    return fake.error;
}

xed_uint_t xed_decoded_inst_get_length(const xed_decoded_inst_t* instruction)
{
    return instruction->length;
}
