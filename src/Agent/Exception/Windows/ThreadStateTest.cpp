#include "Agent/Exception/Windows/ThreadState.h"

#include <gtest/gtest.h>

namespace Torvane::Testing
{
namespace
{
constexpr uint16_t roundsUp = 0x0B7F;   ///< of the x87 unit: all exceptions masked, extended precision
constexpr uint32_t roundsDown = 0x3FA1; ///< of MXCSR: all exceptions masked, two of them have occurred

uint16_t GetX87Control()
{
    uint16_t control = 0;
    __asm__ volatile("fnstcw %0" : "=m"(control));
    return control;
}

uint32_t GetMXCSR()
{
    uint32_t control = 0;
    __asm__ volatile("stmxcsr %0" : "=m"(control));
    return control;
}

void SetControls(uint16_t x87, uint32_t mxcsr)
{
    __asm__ volatile("fldcw %0\n\tldmxcsr %1" : : "m"(x87), "m"(mxcsr));
}
} // namespace

TEST(ScopedThreadState, ComputesInTheDefaultStateAndGivesTheThreadItsOwnBack)
{
    const uint16_t x87Before = GetX87Control();
    const uint32_t mxcsrBefore = GetMXCSR();
    SetControls(roundsUp, roundsDown);
    SetLastError(4711);
    uint16_t x87Inside = 0;
    uint32_t mxcsrInside = 0;
    {
        const ScopedThreadState state;
        x87Inside = GetX87Control();
        mxcsrInside = GetMXCSR();
        SetControls(0x037F, 0x1F80);
        SetLastError(0);
    }
    const DWORD lastError = GetLastError();
    const uint16_t x87After = GetX87Control();
    const uint32_t mxcsrAfter = GetMXCSR();
    SetControls(x87Before, mxcsrBefore);

    EXPECT_EQ(x87Inside, 0x037F);
    EXPECT_EQ(mxcsrInside, 0x1F80u);
    EXPECT_EQ(x87After, roundsUp);
    EXPECT_EQ(mxcsrAfter, roundsDown);
    EXPECT_EQ(lastError, 4711u);
}
} // namespace Torvane::Testing
