#pragma once

/// \file
/// What the Agent uses of Intel XED, by the names and the signatures of its documentation, in place of a kit's own header.
/// Included within a block of C linkage. `FakeXed.h` has what the functions do.

#include <stdint.h>

typedef uint8_t xed_uint8_t;
typedef unsigned int xed_uint_t;

typedef enum
{
    XED_MACHINE_MODE_INVALID,
    XED_MACHINE_MODE_LONG_64,
    XED_MACHINE_MODE_LEGACY_32,
} xed_machine_mode_enum_t;

typedef enum
{
    XED_ADDRESS_WIDTH_INVALID = 0,
    XED_ADDRESS_WIDTH_32b = 4,
    XED_ADDRESS_WIDTH_64b = 8,
} xed_address_width_enum_t;

typedef enum
{
    XED_ERROR_NONE,
    XED_ERROR_BUFFER_TOO_SHORT,
    XED_ERROR_GENERAL_ERROR,
} xed_error_enum_t;

typedef struct xed_state_s
{
    xed_machine_mode_enum_t mmode;
    xed_address_width_enum_t stack_addr_width;
} xed_state_t;

typedef struct xed_decoded_inst_s
{
    xed_state_t mode;
    xed_uint_t length;
} xed_decoded_inst_t;

void xed_tables_init(void);
void xed_decoded_inst_zero_set_mode(xed_decoded_inst_t* instruction, const xed_state_t* state);
xed_error_enum_t xed_decode(xed_decoded_inst_t* instruction, const xed_uint8_t* code,
                            const unsigned int size);
xed_uint_t xed_decoded_inst_get_length(const xed_decoded_inst_t* instruction);
