#include "Shared/Foundation/Windows/Clock.h"

#include "tests/Support/FakeClock.h"
#include "tests/Support/TestThread.h"

namespace Torvane::Testing
{
TEST(Clock, CountsSecondsFromTheOrigin)
{
    FakeClock clock(10000000, 10000000);
    EXPECT_EQ(SecondsSinceStartup(), 1.0);
    clock.Set(12500000);
    EXPECT_EQ(SecondsSinceStartup(), 1.25);
    SetTimeOrigin();
    EXPECT_EQ(SecondsSinceStartup(), 0.0);
    clock.Set(12500000 + 5000000);
    EXPECT_EQ(SecondsSinceStartup(), 0.5);
}

TEST(Clock, DividesInDoublePrecision)
{
    FakeClock clock(1, 3);
    EXPECT_EQ(SecondsSinceStartup(), 1.0 / 3.0);
    clock.Set(int64_t{1} << 52);
    EXPECT_EQ(SecondsSinceStartup(), static_cast<double>(int64_t{1} << 52) / 3.0);
}

TEST(Clock, ReadsCounterAndFrequencyOnEveryCall)
{
    FakeClock clock(3000, 1000);
    const uint32_t before = clock.GetCounterReads();
    EXPECT_EQ(SecondsSinceStartup(), 3.0);
    clock.SetFrequency(2000);
    EXPECT_EQ(SecondsSinceStartup(), 1.5);
    EXPECT_EQ(clock.GetCounterReads(), before + 2);
    EXPECT_EQ(clock.GetFrequencyReads(), 2u);
}

TEST(Clock, SubtractsTheOriginAsAnUnsignedNumber)
{
    FakeClock clock(1000, 1);
    SetTimeOrigin();
    clock.Set(999);
    EXPECT_EQ(SecondsSinceStartup(), 18446744073709551616.0);
}

TEST(Clock, AdvancesByItself)
{
    SetTimeOrigin();
    const double first = SecondsSinceStartup();
    EXPECT_GE(first, 0.0);
    EXPECT_TRUE(WaitUntil([first] { return SecondsSinceStartup() > first; }));
}
} // namespace Torvane::Testing
