#include "Shared/Process/Windows/ModulePathSet.h"

#include "Shared/Memory/MemorySystem.h"
#include "tests/Support/TestMemorySystem.h"

#include <gtest/gtest.h>
#include <string.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Path = std::vector<wchar_t>; // natively wide texts of the C++ library are of another width

Path MakePath(const std::string& text)
{
    Path path(text.begin(), text.end());
    path.push_back(0);
    return path;
}

Path MakeLibraryPath(uint32_t number)
{
    return MakePath("C:\\Program Files\\Some Game\\Binaries\\Library" + std::to_string(number) + ".dll");
}

uint32_t LengthOf(const Path& path)
{
    return static_cast<uint32_t>(path.size() - 1);
}

uint64_t HashOf(const Path& path)
{
    return ModulePathSet::Hash(path.data(), LengthOf(path));
}

bool Contains(const ModulePathSet& set, const Path& path)
{
    return set.Contains(path.data(), LengthOf(path));
}

bool Insert(ModulePathSet& set, const Path& path)
{
    OwnedWideString text = CopyWide(path.data());
    const bool isNew = set.Insert(text);
    EXPECT_EQ(isNew, text.pointer == nullptr);
    return isNew;
}

void InsertLibraries(ModulePathSet& set, uint32_t first, uint32_t end)
{
    for (uint32_t i = first; i < end; ++i)
    {
        ASSERT_TRUE(Insert(set, MakeLibraryPath(i))) << i;
    }
}

/// A slot is occupied exactly if its control byte is the hash of its entry, cut to seven bits.
void ExpectSoundTable(const ModulePathSet& set)
{
    uint32_t occupied = 0;
    for (uint32_t slot = 0; slot < set.capacity; ++slot)
    {
        if (set.controls[slot] == 0x80)
        {
            continue;
        }
        ++occupied;
        const OwnedWideString& entry = set.entries[slot];
        ASSERT_EQ(set.controls[slot], ModulePathSet::Hash(entry.pointer, entry.length) & 0x7F) << slot;
        ASSERT_EQ(entry.capacity, entry.length + 1) << slot;
    }
    EXPECT_EQ(occupied, set.count);
}

/// Paths whose hashes agree in the home group of a table of that many groups and, if asked for, the control byte.
std::vector<Path> FindCollisions(uint32_t groups, uint32_t home, bool sameControl, size_t wanted)
{
    std::vector<Path> found;
    for (uint32_t i = 0; found.size() < wanted; ++i)
    {
        Path path = MakeLibraryPath(i);
        const uint64_t hash = HashOf(path);
        if ((hash >> 7) % groups == home && (!sameControl || (hash & 0x7F) == 5))
        {
            found.push_back(path);
        }
    }
    return found;
}

uint32_t SlotOf(const ModulePathSet& set, const Path& path)
{
    for (uint32_t slot = 0; slot < set.capacity; ++slot)
    {
        if (set.controls[slot] != 0x80 && set.entries[slot].length == LengthOf(path) &&
            memcmp(set.entries[slot].pointer, path.data(), LengthOf(path) * sizeof(wchar_t)) == 0)
        {
            return slot;
        }
    }
    return UINT32_MAX;
}

/// The path with another character at that place, and with the same control byte, so that a look-up in the same group
/// has to compare the two.
Path FindTwin(const Path& path, uint32_t place)
{
    Path twin = path;
    do
    {
        ++twin[place];
    }
    while (twin[place] == path[place] || twin[place] == 0 || ((HashOf(twin) ^ HashOf(path)) & 0x7F) != 0);
    return twin;
}

class ModulePathSetTest : public testing::Test
{
private:
    TestMemorySystem memory;
};
} // namespace

TEST_F(ModulePathSetTest, StartsEmptyWith2048Slots)
{
    const ModulePathSet set;
    EXPECT_EQ(set.capacity, 2048u);
    EXPECT_EQ(set.count, 0u);
    for (uint32_t slot = 0; slot < set.capacity; ++slot)
    {
        ASSERT_EQ(set.controls[slot], 0x80) << slot;
    }
    EXPECT_FALSE(Contains(set, MakeLibraryPath(0)));
}

TEST_F(ModulePathSetTest, HashesTheBytesOfThePathWithoutItsEndMarkAndWithoutASeed)
{
    // By the published reference implementation, without vector instructions: for no bytes, for 8 and for 300.
    EXPECT_EQ(HashOf(MakePath("")), 0x2D06800538D394C2u);
    EXPECT_EQ(HashOf(MakePath("a.dl")), 0xF772C8C1309BD84Bu);
    EXPECT_EQ(HashOf(MakePath(
                  "C:\\Program Files\\Some Game\\Binaries\\A library with a name that is long enough to "
                  "be hashed in stripes, not at once, and longer still so that it is.dll")),
              0x429B29C665768F26u);
}

TEST_F(ModulePathSetTest, ContainsWhatWasInsertedAndNothingElse)
{
    ModulePathSet set;
    EXPECT_TRUE(Insert(set, MakePath("C:\\One.dll")));
    EXPECT_TRUE(Contains(set, MakePath("C:\\One.dll")));
    EXPECT_FALSE(Contains(set, MakePath("C:\\One.dl")));
    EXPECT_FALSE(Contains(set, MakePath("C:\\One.dlll")));
    EXPECT_FALSE(Contains(set, MakePath("")));
}

TEST_F(ModulePathSetTest, ContainsAnEmptyPathIfItWasInserted)
{
    ModulePathSet set;
    EXPECT_TRUE(Insert(set, MakePath("")));
    EXPECT_TRUE(Contains(set, MakePath("")));
    EXPECT_FALSE(Insert(set, MakePath("")));
    EXPECT_EQ(set.count, 1u);
}

TEST_F(ModulePathSetTest, LeavesAPathThatItContainsWithTheCaller)
{
    ModulePathSet set;
    OwnedWideString first = CopyWide(MakePath("C:\\One.dll").data());
    OwnedWideString second = CopyWide(MakePath("C:\\One.dll").data());
    const wchar_t* text = first.pointer;
    EXPECT_TRUE(set.Insert(first));
    EXPECT_EQ(first.pointer, nullptr);
    EXPECT_EQ(first.length, 0u);
    EXPECT_EQ(first.capacity, 0u);
    EXPECT_FALSE(set.Insert(second));
    EXPECT_NE(second.pointer, nullptr);
    EXPECT_EQ(set.count, 1u);
    EXPECT_EQ(set.entries[SlotOf(set, MakePath("C:\\One.dll"))].pointer, text);
}

TEST_F(ModulePathSetTest, DistinguishesPathsThatDifferInCaseOnly)
{
    ModulePathSet set;
    EXPECT_TRUE(Insert(set, MakePath("C:\\Windows\\System32\\kernel32.dll")));
    EXPECT_FALSE(Contains(set, MakePath("C:\\windows\\system32\\KERNEL32.DLL")));
    EXPECT_TRUE(Insert(set, MakePath("C:\\windows\\system32\\KERNEL32.DLL")));
    EXPECT_EQ(set.count, 2u);
}

TEST_F(ModulePathSetTest, PutsPathsOfOneHomeGroupIntoItsSlotsInAscendingOrderAndThenIntoTheNextGroup)
{
    ModulePathSet set;
    const std::vector<Path> paths = FindCollisions(2048 / 16, 5, false, 20);
    for (size_t i = 0; i < paths.size(); ++i)
    {
        ASSERT_TRUE(Insert(set, paths[i]));
        EXPECT_EQ(SlotOf(set, paths[i]), 5 * 16 + i);
    }
    for (const Path& path : paths)
    {
        EXPECT_TRUE(Contains(set, path));
    }
}

TEST_F(ModulePathSetTest, WrapsAroundAfterTheLastGroup)
{
    ModulePathSet set;
    const std::vector<Path> paths = FindCollisions(2048 / 16, 127, false, 18);
    for (const Path& path : paths)
    {
        ASSERT_TRUE(Insert(set, path));
    }
    EXPECT_EQ(SlotOf(set, paths[15]), 2047u);
    EXPECT_EQ(SlotOf(set, paths[16]), 0u);
    EXPECT_EQ(SlotOf(set, paths[17]), 1u);
    EXPECT_TRUE(Contains(set, paths[17]));
    EXPECT_FALSE(Insert(set, paths[17]));
}

TEST_F(ModulePathSetTest, DistinguishesPathsWhoseHomeGroupAndControlByteAgree)
{
    ModulePathSet set;
    const std::vector<Path> paths = FindCollisions(2048 / 16, 9, true, 19);
    for (size_t i = 0; i + 1 < paths.size(); ++i)
    {
        ASSERT_TRUE(Insert(set, paths[i]));
    }
    for (size_t i = 0; i + 1 < paths.size(); ++i)
    {
        EXPECT_TRUE(Contains(set, paths[i]));
        EXPECT_FALSE(Insert(set, paths[i]));
    }
    EXPECT_FALSE(Contains(set, paths.back()));
    ExpectSoundTable(set);
}

TEST_F(ModulePathSetTest, DistinguishesPathsThatDifferInOneCharacterAnywhere)
{
    for (uint32_t length = 1; length <= 34; ++length)
    {
        const Path path = MakePath(std::string(length, 'a'));
        ModulePathSet set(16);
        ASSERT_TRUE(Insert(set, path));
        EXPECT_TRUE(Contains(set, path)) << length;
        for (uint32_t place = 0; place < length; ++place)
        {
            EXPECT_FALSE(Contains(set, FindTwin(path, place))) << place << " of " << length;
        }
    }
}

TEST_F(ModulePathSetTest, LooksNoFurtherThanTheFirstGroupWithAnEmptySlot)
{
    ModulePathSet set;
    const std::vector<Path> paths = FindCollisions(2048 / 16, 3, false, 17);
    for (const Path& path : paths)
    {
        ASSERT_TRUE(Insert(set, path));
    }
    ASSERT_EQ(SlotOf(set, paths[16]), 4u * 16);
    // Paths are never removed from a set; the test does it to see where a look-up ends.
    set.entries[3 * 16 + 7].~OwnedWideString();
    set.controls[3 * 16 + 7] = 0x80;
    --set.count;
    EXPECT_FALSE(Contains(set, paths[16]));
    EXPECT_TRUE(Contains(set, paths[15]));
}

TEST_F(ModulePathSetTest, DoublesBeforeThe1537thPath)
{
    ModulePathSet set;
    InsertLibraries(set, 0, 1536);
    EXPECT_EQ(set.capacity, 2048u);
    EXPECT_TRUE(Insert(set, MakeLibraryPath(1536)));
    EXPECT_EQ(set.capacity, 4096u);
    EXPECT_EQ(set.count, 1537u);
    ExpectSoundTable(set);
}

TEST_F(ModulePathSetTest, DoublesAtThreeQuartersAlsoForAPathThatItContains)
{
    ModulePathSet set;
    InsertLibraries(set, 0, 1536);
    EXPECT_FALSE(Insert(set, MakeLibraryPath(0)));
    EXPECT_EQ(set.capacity, 4096u);
    EXPECT_EQ(set.count, 1536u);
    ExpectSoundTable(set);
}

TEST_F(ModulePathSetTest, EndsWithoutATable)
{
    const ModulePathSet set(0);
    EXPECT_EQ(set.entries, nullptr);
    EXPECT_EQ(set.controls, nullptr);
    EXPECT_EQ(set.capacity, 0u);
}

TEST_F(ModulePathSetTest, GrowsFromNothingTo16Slots)
{
    ModulePathSet set(0);
    EXPECT_EQ(set.entries, nullptr);
    EXPECT_FALSE(Contains(set, MakeLibraryPath(0)));
    InsertLibraries(set, 0, 12);
    EXPECT_EQ(set.capacity, 16u);
    InsertLibraries(set, 12, 13);
    EXPECT_EQ(set.capacity, 32u);
    ExpectSoundTable(set);
}

TEST_F(ModulePathSetTest, ContainsThePathsOf2000Libraries)
{
    ModulePathSet set;
    InsertLibraries(set, 0, 2000);
    EXPECT_EQ(set.count, 2000u);
    EXPECT_EQ(set.capacity, 4096u);
    for (uint32_t i = 0; i < 2000; ++i)
    {
        ASSERT_TRUE(Contains(set, MakeLibraryPath(i))) << i;
        ASSERT_FALSE(Insert(set, MakeLibraryPath(i))) << i;
        ASSERT_FALSE(Contains(set, MakeLibraryPath(i + 2000))) << i;
    }
    EXPECT_EQ(set.count, 2000u);
    ExpectSoundTable(set);
}

TEST_F(ModulePathSetTest, Contains100000Paths)
{
    ModulePathSet set;
    InsertLibraries(set, 0, 100000);
    EXPECT_EQ(set.count, 100000u);
    EXPECT_EQ(set.capacity, 262144u);
    for (uint32_t i = 0; i < 100000; ++i)
    {
        ASSERT_TRUE(Contains(set, MakeLibraryPath(i))) << i;
        ASSERT_FALSE(Contains(set, MakeLibraryPath(i + 100000))) << i;
    }
    ExpectSoundTable(set);
}
} // namespace Torvane::Testing
