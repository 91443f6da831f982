#include "Shared/Serialization/JsonReader.h"

#include <gtest/gtest.h>

#include <sanitizer/allocator_interface.h>
#include <string_view>

namespace Torvane::Testing
{
namespace
{
size_t allocations;
size_t lastSize;
size_t frees;

void CountAllocation(const volatile void*, size_t size)
{
    ++allocations;
    lastSize = size;
}

void CountFree(const volatile void*)
{
    ++frees;
}

struct AllocationCounts
{
    size_t allocations;
    size_t lastSize;
    size_t frees;
    uint32_t treeSize;
    bool parsed;
};

AllocationCounts ParseAndCount(std::string_view text)
{
    static const bool installed = __sanitizer_install_malloc_and_free_hooks(CountAllocation, CountFree) != 0;
    EXPECT_TRUE(installed);
    JsonParseState state = StartJsonParse(text.data(), static_cast<uint32_t>(text.size()), 0);
    allocations = 0;
    lastSize = 0;
    frees = 0;
    JsonValue* root = ParseJson(state);
    FreeJson(root);
    return {allocations, lastSize, frees, state.domSize + state.dataSize, root != nullptr};
}

TEST(JsonAllocation, IsOneBlockOfTheCountedSizeForAnyDocument)
{
    for (const std::string_view text : {"0", "[]", "{\"a\":[1,2,{\"b\":\"\\u00e9\"}],\"c\":\"text\"}"})
    {
        const AllocationCounts counts = ParseAndCount(text);
        EXPECT_TRUE(counts.parsed);
        EXPECT_EQ(counts.allocations, 1u) << text;
        EXPECT_EQ(counts.lastSize, counts.treeSize) << text;
        EXPECT_EQ(counts.frees, 1u) << text;
    }
}

TEST(JsonAllocation, IsNoneForAMalformedDocument)
{
    for (const std::string_view text : {"", "[1,2,3", "{\"a\":1} x", "[\"\\x\"]"})
    {
        const AllocationCounts counts = ParseAndCount(text);
        EXPECT_FALSE(counts.parsed);
        EXPECT_EQ(counts.allocations, 0u) << text;
    }
}
} // namespace
} // namespace Torvane::Testing
