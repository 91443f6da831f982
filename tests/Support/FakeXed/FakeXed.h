#pragma once

/// \file
/// A decoder of the interface of Intel XED that answers what a test specifies; one thread.

#include <stdint.h>
#include <vector>

extern "C"
{
#include <xed/xed-interface.h>
}

namespace Torvane::Testing
{
/// Keeps the calls, and answers them, as long as it lives.
class FakeXed
{
public:
    struct Decoding
    {
        xed_machine_mode_enum_t mode;
        xed_address_width_enum_t stackWidth;
        const uint8_t* code;
        unsigned int size; ///< bytes that can be read
    };

    FakeXed();
    ~FakeXed();
    FakeXed(const FakeXed&) = delete;
    FakeXed& operator=(const FakeXed&) = delete;

    /// The one that lives.
    static FakeXed& Current();

    uint32_t initializations = 0; ///< of the tables
    std::vector<Decoding> decodings;
    xed_error_enum_t error = XED_ERROR_NONE;
    xed_uint_t length = 1; ///< of every instruction, also after an error
};
} // namespace Torvane::Testing
