#include "Agent/Protocol/BlobBuilder.h"

#include "Agent/Protocol/Names.h"
#include "Shared/Container/OwnedString.h"
#include "Shared/Memory/MemorySystem.h"
#include "tests/Support/TestMemorySystem.h"

#include <gtest/gtest.h>

#include <string.h>
#include <vector>

namespace Torvane::Testing
{
namespace
{
class BlobBuilderTest : public testing::Test
{
protected:
    const BlobHeader& Header() const
    {
        return *static_cast<const BlobHeader*>(blob.Get().pointer);
    }

    template<typename Record>
    const Record& Fixed() const
    {
        return *reinterpret_cast<const Record*>(&Header() + 1);
    }

    std::vector<uint8_t> Bytes() const
    {
        const uint8_t* first = static_cast<const uint8_t*>(blob.Get().pointer);
        return std::vector<uint8_t>(first, first + blob.Get().size);
    }

    TestMemorySystem memory;
    OwnedBlob blob;
};

TEST_F(BlobBuilderTest, VersionHasTenPayloadBytesAndEighteenOnThePipe)
{
    RecordBuilder<VersionBlob> builder(sizeof(apiVersion));
    builder.AppendText(builder.Fixed().version, apiVersion);
    blob = builder.Finish();
    const std::vector<uint8_t> expected = {10, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, '2', '.', '4', '.', '0', 0};
    EXPECT_EQ(Bytes(), expected);
}

TEST_F(BlobBuilderTest, EmptyProjectPreferencesAreOneHundredTwentyZeros)
{
    blob = RecordBuilder<ProjectPreferencesRecord>().Finish();
    EXPECT_EQ(Header().size, 120u);
    EXPECT_EQ(Header().type, BlobType::RegisterProjectPreferences);
    const std::vector<uint8_t> bytes = Bytes();
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 8, bytes.end()), std::vector<uint8_t>(120));
}

TEST_F(BlobBuilderTest, NarrowLogCarriesLevelOffsetFourAndTheTerminatedText)
{
    blob = BuildLogBlob(BlobLogLevel::Error, "ab");
    const std::vector<uint8_t> expected = {11, 0, 0, 0, 10, 0, 0, 0, 4, 0, 0, 0, 4, 0, 0, 0, 'a', 'b', 0};
    EXPECT_EQ(Bytes(), expected);
}

TEST_F(BlobBuilderTest, WideLogOfAnEmptyTextCarriesOnlyTheTerminator)
{
    blob = BuildLogBlob(BlobLogLevel::Info, L"");
    const std::vector<uint8_t> expected = {10, 0, 0, 0, 11, 0, 0, 0, 2, 0, 0, 0, 4, 0, 0, 0, 0, 0};
    EXPECT_EQ(Bytes(), expected);
}

TEST_F(BlobBuilderTest, BlobsWithoutMeaningHaveFourPayloadBytes)
{
    blob = BuildUnwrittenBlob(BlobType::ScheduleReload);
    EXPECT_EQ(Header().size, 4u);
    EXPECT_EQ(Header().type, BlobType::ScheduleReload);
    EXPECT_EQ(blob.Get().size, 12u);
}

TEST_F(BlobBuilderTest, ItemsFollowTheFixedPartBackToBackWithoutAlignment)
{
    const uint64_t numbers[] = {7, 9};
    RecordBuilder<PatchLoadedBlob> builder(MeasureText(L"x") + MeasureText(L"yz") + sizeof(numbers));
    builder.AppendText(builder.Fixed().patchPath, L"x");
    builder.AppendText(builder.Fixed().secondText, L"yz");
    builder.AppendArray(builder.Fixed().pageRanges, numbers, 2, sizeof(uint64_t));
    blob = builder.Finish();
    const PatchLoadedBlob& fixed = Fixed<PatchLoadedBlob>();
    EXPECT_EQ(Header().size, 80u + 4 + 6 + 16);
    EXPECT_EQ(fixed.patchPath.value, 80u);
    EXPECT_EQ(fixed.secondText.value, 80u + 4 - 4);
    EXPECT_EQ(fixed.pageRanges.offset.value, 80u + 4 + 6 - 0x38);
    EXPECT_EQ(fixed.pageRanges.count, 2u);
    EXPECT_EQ(memcmp(Follow<uint8_t>(fixed.pageRanges), numbers, sizeof(numbers)), 0);
}

/// The sanitizers stop a read that isn't allowed at the item's address.
TEST_F(BlobBuilderTest, ItemsCanBeReadAtOddAddresses)
{
    const AddressSlot addresses[] = {0x0123456789ABCDEF, 7};
    const WirePageRange ranges[] = {{1, 2, 3, 0}, {0x0123456789ABCDEF, 5, 6, 0}};
    const RelativeOffset offsets[] = {{8}, {4}};
    RecordBuilder<EnableModulesBlob> builder(1 + sizeof(addresses) + sizeof(ranges) + sizeof(offsets));
    builder.AppendArray(builder.Fixed().modules, "x", 1, 1);
    builder.AppendArray(builder.Fixed().pageRangeCounts, addresses, 2, sizeof(AddressSlot));
    builder.AppendArray(builder.Fixed().pageRanges, ranges, 2, sizeof(WirePageRange));
    builder.AppendArray(builder.Fixed().zeros, offsets, 2, sizeof(RelativeOffset));
    blob = builder.Finish();
    const EnableModulesBlob& fixed = Fixed<EnableModulesBlob>();

    const AddressItem* readAddresses = Follow<AddressItem>(fixed.pageRangeCounts);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(readAddresses) % 8, 1u);
    EXPECT_EQ(AddressSlot{readAddresses[0].slot}, 0x0123456789ABCDEFu);
    EXPECT_EQ(AddressSlot{readAddresses[1].slot}, 7u);
    const WirePageRange& range = Follow<WirePageRange>(fixed.pageRanges)[1];
    EXPECT_EQ(AddressSlot{range.base}, 0x0123456789ABCDEFu);
    EXPECT_EQ(uint64_t{range.size}, 5u);
    EXPECT_EQ(uint32_t{range.protection}, 6u);
    const RelativeOffset* readOffsets = Follow<RelativeOffset>(fixed.zeros);
    EXPECT_EQ(Follow(readOffsets[0]), readOffsets + 2);
    EXPECT_EQ(Follow(readOffsets[1]), readOffsets + 2);
}

TEST_F(BlobBuilderTest, AStringAtAnOddAddressCanBeCopied)
{
    RecordBuilder<PatchLoadedBlob> builder(1 + MeasureText(L"\x4E2D d"));
    builder.Append(builder.Fixed().patchPath, "", 1);
    builder.AppendText(builder.Fixed().secondText, L"\x4E2D d");
    blob = builder.Finish();
    const wchar_t* text = FollowWideString(Fixed<PatchLoadedBlob>().secondText);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(text) % 2, 1u);
    const OwnedWideString copy = CopyWide(text);
    EXPECT_STREQ(copy.pointer, L"\x4E2D d");
    EXPECT_EQ(copy.length, 3u);
}

TEST_F(BlobBuilderTest, AnEmptyArrayCarriesItsPositionAndCountZero)
{
    RecordBuilder<DisableModulesBlob> builder;
    builder.AppendArray(builder.Fixed().modules, nullptr, 0, sizeof(WireModuleIdentity));
    builder.AppendArray(builder.Fixed().executables, nullptr, 0, sizeof(ExecutableIdentity));
    blob = builder.Finish();
    EXPECT_EQ(Fixed<DisableModulesBlob>().modules.offset.value, 16u);
    EXPECT_EQ(Fixed<DisableModulesBlob>().modules.count, 0u);
    EXPECT_EQ(Fixed<DisableModulesBlob>().executables.offset.value, 8u);
}

TEST_F(BlobBuilderTest, MemoryResultOfNoElementsIsItsFixedPart)
{
    RecordBuilder<ReadMemoryResultBlob> builder;
    builder.Append(builder.Fixed().data, nullptr, 0);
    blob = builder.Finish();
    EXPECT_EQ(Header().size, 24u);
    EXPECT_EQ(Fixed<ReadMemoryResultBlob>().data.value, 16u);
}

TEST_F(BlobBuilderTest, TheFixedPartIsClearedAlsoInABlockThatWasUsedBefore)
{
    Allocation used = Allocate(sizeof(BlobHeader) + sizeof(RestartBlob));
    memset(used.pointer, 0xA5, used.size);
    Free(used);
    blob = RecordBuilder<RestartBlob>().Finish();
    const std::vector<uint8_t> bytes = Bytes();
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 8, bytes.end()),
              std::vector<uint8_t>(sizeof(RestartBlob)));
}

TEST_F(BlobBuilderTest, FinishLeavesTheBuilderEmpty)
{
    RecordBuilder<ReloadBlob> builder;
    blob = builder.Finish();
    EXPECT_EQ(builder.Finish().Get().pointer, nullptr);
}
} // namespace
} // namespace Torvane::Testing
