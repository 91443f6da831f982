#include "Agent/Exception/InstructionDecoder.h"

#include "tests/Support/FakeXed/FakeXed.h"

#include <gtest/gtest.h>
#include <string.h>

using namespace Torvane;
using namespace Torvane::Testing;

namespace
{
class InstructionDecoderXED : public testing::Test
{
protected:
    void ExpectNothing(const DecodedInstruction& decoded) const
    {
        const DecodedInstruction nothing = {};
        EXPECT_EQ(0, memcmp(&nothing, &decoded, sizeof(decoded)));
        EXPECT_EQ(1u, xed.decodings.size());
    }

    FakeXed xed;
    uint8_t code[16] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88,
                        0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x10};
};
} // namespace

TEST_F(InstructionDecoderXED, SetsUpTheTables)
{
    StartupInstructionDecoder();
    EXPECT_EQ(1u, xed.initializations);
    EXPECT_TRUE(xed.decodings.empty());
}

TEST_F(InstructionDecoderXED, Decodes16BytesAs32BitCode)
{
    DecodeInstruction(code);
    ASSERT_EQ(1u, xed.decodings.size());
    EXPECT_EQ(XED_MACHINE_MODE_LEGACY_32, xed.decodings[0].mode);
    EXPECT_EQ(XED_ADDRESS_WIDTH_32b, xed.decodings[0].stackWidth);
    EXPECT_EQ(code, xed.decodings[0].code);
    EXPECT_EQ(16u, xed.decodings[0].size);
    EXPECT_EQ(0u, xed.initializations);
}

TEST_F(InstructionDecoderXED, GivesTheLengthWithAll15Bytes)
{
    for (const uint8_t length : {1, 7, 15})
    {
        xed.length = length;
        const DecodedInstruction decoded = DecodeInstruction(code);
        EXPECT_EQ(length, decoded.length);
        EXPECT_EQ(0, memcmp(code, decoded.bytes, longestInstruction));
        EXPECT_EQ(length, GetInstructionLength(code));
    }
}

TEST_F(InstructionDecoderXED, GivesNothingAfterAnErrorWhateverTheLength)
{
    xed.error = XED_ERROR_GENERAL_ERROR;
    xed.length = 3;
    ExpectNothing(DecodeInstruction(code));
    EXPECT_EQ(0, GetInstructionLength(code));
}

TEST_F(InstructionDecoderXED, GivesNothingWithoutALength)
{
    xed.length = 0;
    ExpectNothing(DecodeInstruction(code));
}
