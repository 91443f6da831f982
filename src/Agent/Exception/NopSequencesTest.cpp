#include "Agent/Exception/NopSequences.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace Torvane;

namespace
{
std::string Digits(const uint8_t* bytes, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i)
    {
        char digits[4];
        snprintf(digits, sizeof(digits), i == 0 ? "%02X" : " %02X", static_cast<unsigned>(bytes[i]));
        text += digits;
    }
    return text;
}
} // namespace

TEST(NopSequences, AreTheRecommendedForms)
{
    const char* const expected[] = {
        "90",
        "66 90",
        "0F 1F 00",
        "0F 1F 40 00",
        "0F 1F 44 00 00",
        "66 0F 1F 44 00 00",
        "0F 1F 80 00 00 00 00",
        "0F 1F 84 00 00 00 00 00",
        "0F 1F 84 00 00 00 00 00 90",
        "0F 1F 84 00 00 00 00 00 66 90",
        "0F 1F 84 00 00 00 00 00 0F 1F 00",
        "0F 1F 84 00 00 00 00 00 0F 1F 40 00",
        "0F 1F 84 00 00 00 00 00 0F 1F 44 00 00",
        "0F 1F 84 00 00 00 00 00 66 0F 1F 44 00 00",
        "0F 1F 84 00 00 00 00 00 0F 1F 80 00 00 00 00",
    };
    for (uint8_t length = 1; length <= 15; ++length)
    {
        EXPECT_EQ(expected[length - 1], Digits(GetNopSequence(length), length));
    }
}

TEST(NopSequences, HaveNothingForLength0)
{
    EXPECT_EQ(nullptr, GetNopSequence(0));
}
