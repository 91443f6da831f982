#include "Shared/Container/DynamicArray.h"

#include "tests/Support/TestMemorySystem.h"

#include <gtest/gtest.h>

#include <utility>

namespace Torvane::Testing
{
namespace
{
/// No power of two, so that sizes in bytes and in elements can't be taken for each other.
struct Element
{
    uint32_t number;
    uint8_t bytes[8];
};

class DynamicArrayTest : public testing::Test
{
protected:
    static DynamicArray<Element> MakeFilled(uint32_t count, uint32_t firstNumber = 0)
    {
        DynamicArray<Element> array;
        for (uint32_t i = 0; i < count; ++i)
        {
            array.Append({firstNumber + i, {1, 2, 3, 4, 5, 6, 7, 8}});
        }
        return array;
    }

    static void ExpectFilled(const DynamicArray<Element>& array, uint32_t count, uint32_t firstNumber = 0)
    {
        ASSERT_EQ(array.count, count);
        for (uint32_t i = 0; i < count; ++i)
        {
            ASSERT_EQ(array[i].number, firstNumber + i);
            ASSERT_EQ(array[i].bytes[7], 8);
        }
    }

    static void ExpectEmpty(const DynamicArray<Element>& array)
    {
        EXPECT_EQ(array.pointer, nullptr);
        EXPECT_EQ(array.size, 0u);
        EXPECT_EQ(array.capacity, 0u);
        EXPECT_EQ(array.count, 0u);
    }

    TestMemorySystem memory;
};
} // namespace

TEST(DynamicArrayWithoutMemory, TouchesNoAllocatorWhileItIsNeverFilled)
{
    // There is no memory system here: an allocation or a free would be a fault.
    DynamicArray<uint32_t> array;
    array.Destroy();
    DynamicArray<uint32_t> taken(std::move(array));
    array = std::move(taken);
    EXPECT_EQ(array.begin(), array.end());
}

TEST_F(DynamicArrayTest, StartsWithoutABlock)
{
    const DynamicArray<Element> array;
    ExpectEmpty(array);
}

TEST_F(DynamicArrayTest, TakesABlockOfItsCapacity)
{
    const DynamicArray<Element> array(5);
    EXPECT_NE(array.pointer, nullptr);
    EXPECT_EQ(array.size, 60u);
    EXPECT_EQ(array.capacity, 5u);
    EXPECT_EQ(array.count, 0u);
}

TEST_F(DynamicArrayTest, GrowsFromNothingToSixteenAndThenDoubles)
{
    DynamicArray<Element> array;
    uint32_t expected = 16;
    for (uint32_t i = 0; i < 2000; ++i)
    {
        array.Append({i, {0, 0, 0, 0, 0, 0, 0, 8}});
        expected = i < expected ? expected : 2 * expected;
        ASSERT_EQ(array.capacity, expected);
        ASSERT_EQ(array.size, expected * 12);
    }
    EXPECT_EQ(array.capacity, 2048u);
    ExpectFilled(array, 2000);
}

TEST_F(DynamicArrayTest, DoublesTheCapacityThatItWasGiven)
{
    DynamicArray<Element> array(3);
    for (uint32_t i = 0; i < 3; ++i)
    {
        array.Append({i, {0, 0, 0, 0, 0, 0, 0, 8}});
    }
    EXPECT_EQ(array.capacity, 3u);
    array.Append({3, {0, 0, 0, 0, 0, 0, 0, 8}});
    EXPECT_EQ(array.capacity, 6u);
    ExpectFilled(array, 4);
}

TEST_F(DynamicArrayTest, GrowsFromACapacityOfZeroThatHasABlock)
{
    DynamicArray<Element> array(0);
    EXPECT_NE(array.pointer, nullptr);
    EXPECT_EQ(array.size, 0u);
    array.Append({4711, {}});
    EXPECT_EQ(array.capacity, 16u);
    EXPECT_EQ(array[0].number, 4711u);
}

TEST_F(DynamicArrayTest, StaysInItsBlockUntilThatIsFull)
{
    DynamicArray<Element> array(4);
    const Element* block = array.pointer;
    for (uint32_t i = 0; i < 4; ++i)
    {
        array.Append({i, {}});
        ASSERT_EQ(array.pointer, block);
    }
}

TEST_F(DynamicArrayTest, AppendsAnElementOfItsOwnAlsoWhenThatMakesItGrow)
{
    DynamicArray<Element> array = MakeFilled(16, 100);
    ASSERT_EQ(array.count, array.capacity);
    array.Append(array[0]); // a freed block of a pool has its link where the first element was
    array.Append(array[3]);
    EXPECT_EQ(array.capacity, 32u);
    EXPECT_EQ(array[16].number, 100u);
    EXPECT_EQ(array[16].bytes[7], 8);
    EXPECT_EQ(array[17].number, 103u);
}

TEST_F(DynamicArrayTest, FreesTheBlockThatItHasOutgrown)
{
    DynamicArray<Element> array = MakeFilled(16);
    [[maybe_unused]] const Element* outgrown = array.pointer;
    array.Append({16, {1, 2, 3, 4, 5, 6, 7, 8}});
    ExpectFilled(array, 17);
#ifdef _WIN32
    // Natively the leak is found at the end.
    EXPECT_EQ(Allocate(16 * 12).pointer, outgrown);
#endif
}

TEST_F(DynamicArrayTest, IsRunThroughFromItsFirstElementToItsLast)
{
    const DynamicArray<Element> array = MakeFilled(20, 100);
    uint32_t number = 100;
    for (const Element& element : array)
    {
        ASSERT_EQ(element.number, number++);
    }
    EXPECT_EQ(number, 120u);
}

TEST_F(DynamicArrayTest, GivesAllItsFieldsToTheArrayThatIsMadeOfIt)
{
    DynamicArray<Element> source = MakeFilled(20);
    const Element* block = source.pointer;
    const DynamicArray<Element> target(std::move(source));
    EXPECT_EQ(target.pointer, block);
    EXPECT_EQ(target.size, 32 * 12u);
    EXPECT_EQ(target.capacity, 32u);
    ExpectFilled(target, 20);
    ExpectEmpty(source);
}

TEST_F(DynamicArrayTest, FreesItsOwnBlockWhenItTakesOverAnother)
{
    DynamicArray<Element> source = MakeFilled(20);
    DynamicArray<Element> target = MakeFilled(3, 1000);
    [[maybe_unused]] const Element* formerBlock = target.pointer;
    [[maybe_unused]] const uint32_t formerSize = target.size;
    target = std::move(source);
    ExpectFilled(target, 20);
    EXPECT_EQ(target.capacity, 32u);
    ExpectEmpty(source);
#ifdef _WIN32
    // Natively the leak is found at the end.
    EXPECT_EQ(Allocate(formerSize).pointer, formerBlock);
#endif
}

TEST_F(DynamicArrayTest, BecomesEmptyWhenItTakesOverAnEmptyOne)
{
    DynamicArray<Element> source;
    DynamicArray<Element> target = MakeFilled(3);
    target = std::move(source);
    ExpectEmpty(target);
}

TEST_F(DynamicArrayTest, KeepsItsElementsWhenItIsMovedToItself)
{
    DynamicArray<Element> array = MakeFilled(5);
    DynamicArray<Element>& same = array;
    array = std::move(same);
    ExpectFilled(array, 5);
}

TEST_F(DynamicArrayTest, IsEmptyAfterItsDestructionAndCanBeFilledAgain)
{
    DynamicArray<Element> array = MakeFilled(20);
    array.Destroy();
    ExpectEmpty(array);
    array.Destroy();
    array.Append({7, {}});
    EXPECT_EQ(array.capacity, 16u);
    EXPECT_EQ(array[0].number, 7u);
}
} // namespace Torvane::Testing
