#include "Shared/Container/Array.h"

#include "Shared/Foundation/FixedString.h"
#include "tests/Support/TestMemorySystem.h"

#include <string.h>

#include <gtest/gtest.h>

#include <utility>

namespace Torvane::Testing
{
namespace
{
class ArrayTest : public testing::Test
{
protected:
    /// Memory that isn't cleared, for the next block of this size.
    static void LeaveGarbage(uint32_t size)
    {
        Allocation block = Allocate(size);
        memset(block.pointer, 0xA5, size);
        Free(block);
    }

    TestMemorySystem memory;
};
} // namespace

TEST_F(ArrayTest, HasTheNumberOfElementsThatItWasGivenAllCleared)
{
    LeaveGarbage(100 * sizeof(uint16_t));
    Array<uint16_t> array(100);
    EXPECT_EQ(array.count, 100u);
    EXPECT_EQ(array.GetSize(), 200u);
    for (uint32_t i = 0; i < 100; ++i)
    {
        ASSERT_EQ(array[i], 0u);
        array[i] = static_cast<uint16_t>(i * 3);
    }
    const Array<uint16_t>& same = array;
    EXPECT_EQ(same[99], 297u);
    EXPECT_EQ(&same[0], array.pointer);
}

TEST_F(ArrayTest, ClearsTextsToTheirEnds)
{
    LeaveGarbage(3 * sizeof(FixedWideString));
    const Array<FixedWideString> array(3);
    EXPECT_EQ(array.GetSize(), 3 * 2052u);
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(array.pointer);
    for (uint32_t i = 0; i < array.GetSize(); ++i)
    {
        ASSERT_EQ(bytes[i], 0);
    }
}

TEST_F(ArrayTest, CanHaveNoElements)
{
    const Array<uint64_t> array(0);
    EXPECT_EQ(array.GetSize(), 0u);
    EXPECT_NE(array.pointer, nullptr);
}

TEST_F(ArrayTest, GivesItsBlockToTheArrayThatIsMadeOfIt)
{
    Array<uint32_t> source(10);
    source[9] = 4711;
    const uint32_t* block = source.pointer;
    {
        const Array<uint32_t> target(std::move(source));
        EXPECT_EQ(target.pointer, block);
        EXPECT_EQ(target.count, 10u);
        EXPECT_EQ(target[9], 4711u);
    }
    EXPECT_EQ(source.pointer, nullptr);
    EXPECT_EQ(source.count, 0u);
}

#ifdef _WIN32
TEST_F(ArrayTest, GivesItsBlockBackOnceWithItsSize)
{
    void* block = nullptr;
    {
        Array<uint32_t> source(10);
        const Array<uint32_t> target(std::move(source));
        block = target.pointer;
    }
    EXPECT_EQ(Allocate(40).pointer, block);
    EXPECT_NE(Allocate(40).pointer, block);
}
#endif
} // namespace Torvane::Testing
