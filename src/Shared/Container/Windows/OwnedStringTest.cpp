#include "Shared/Container/OwnedString.h"

#include "Shared/Memory/MemorySystem.h"
#include "tests/Support/TestMemorySystem.h"

#include <locale.h>
#include <string.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace Torvane::Testing
{
namespace
{
class OwnedStringTest : public testing::Test
{
protected:
    TestMemorySystem memory;
};

/// The runtime's multibyte encoding, for a while.
class TestLocale
{
public:
    explicit TestLocale(const char* name)
        : former(setlocale(LC_CTYPE, nullptr))
    {
        EXPECT_NE(setlocale(LC_CTYPE, name), nullptr);
    }

    ~TestLocale()
    {
        setlocale(LC_CTYPE, former.c_str());
    }

    TestLocale(const TestLocale&) = delete;
    TestLocale& operator=(const TestLocale&) = delete;

private:
    std::string former;
};
} // namespace

TEST_F(OwnedStringTest, NarrowsAWideText)
{
    const OwnedString text = NarrowFromWide(L"C:\\Host\\host.exe");
    EXPECT_STREQ(text.pointer, "C:\\Host\\host.exe");
    EXPECT_EQ(text.length, 16u);
    EXPECT_EQ(text.capacity, 17u);
}

TEST_F(OwnedStringTest, WidensANarrowText)
{
    const OwnedWideString text = WideFromNarrow("C:\\Host\\host.exe");
    EXPECT_STREQ(text.pointer, L"C:\\Host\\host.exe");
    EXPECT_EQ(text.length, 16u);
    EXPECT_EQ(text.capacity, 17u);
}

TEST_F(OwnedStringTest, CopiesAWideText)
{
    const wchar_t* original = L"\x00E4\x4E2D\xD83D\xDE00 and on";
    const OwnedWideString text = CopyWide(original);
    EXPECT_STREQ(text.pointer, original);
    EXPECT_NE(text.pointer, original);
    EXPECT_EQ(text.length, 11u);
    EXPECT_EQ(text.capacity, 12u);
}

TEST_F(OwnedStringTest, CanBeEmpty)
{
    const OwnedString narrow = NarrowFromWide(L"");
    const OwnedWideString wide = WideFromNarrow("");
    const OwnedWideString copy = CopyWide(L"");
    EXPECT_STREQ(narrow.pointer, "");
    EXPECT_STREQ(wide.pointer, L"");
    EXPECT_STREQ(copy.pointer, L"");
    EXPECT_EQ(narrow.length, 0u);
    EXPECT_EQ(wide.length, 0u);
    EXPECT_EQ(copy.capacity, 1u);
}

TEST_F(OwnedStringTest, ConvertsLongTexts)
{
    const std::wstring wide(5000, L'w');
    const std::string narrow(5000, 'n');
    const OwnedString narrowed = NarrowFromWide(wide.c_str());
    const OwnedWideString widened = WideFromNarrow(narrow.c_str());
    EXPECT_EQ(narrowed.pointer, std::string(5000, 'w'));
    EXPECT_EQ(widened.pointer, std::wstring(5000, L'n'));
}

TEST_F(OwnedStringTest, CutsWhatNeedsMoreThanOneCharacterForOne)
{
    const TestLocale utf8(".UTF8");
    const std::string whole = "ab\xC3\xA4\xC3\xB6\xC3\xBC";
    const OwnedString text = NarrowFromWide(L"ab\x00E4\x00F6\x00FC");
    // Whether there is half a character at the cut is the runtime's choice.
    EXPECT_GE(strlen(text.pointer), 4u);
    EXPECT_LE(strlen(text.pointer), 5u);
    EXPECT_EQ(whole.compare(0, strlen(text.pointer), text.pointer), 0);
    EXPECT_EQ(text.length, 5u);
    EXPECT_EQ(text.capacity, 6u);
}

TEST_F(OwnedStringTest, IsEmptyWhereTheLocaleLacksACharacter)
{
    // What a block had before must not show.
    constexpr uint32_t bytes = 8;
    Allocation earlier = Allocate(bytes);
    memset(earlier.pointer, 'x', bytes);
    Free(earlier);
    const TestLocale plain("C");
    const OwnedString narrow = NarrowFromWide(L"one\x6728two");
    EXPECT_STREQ(narrow.pointer, "");
    EXPECT_EQ(narrow.length, 7u);
    EXPECT_EQ(narrow.capacity, 8u);

    Allocation earlierWide = Allocate(16);
    memset(earlierWide.pointer, 'x', 16);
    Free(earlierWide);
    const TestLocale utf8(".UTF8");
    const OwnedWideString wide = WideFromNarrow("one\xFFtwo");
    EXPECT_STREQ(wide.pointer, L"");
    EXPECT_EQ(wide.length, 7u);
    EXPECT_EQ(wide.capacity, 8u);
}

TEST_F(OwnedStringTest, HasRoomToSpareWhereOneCharacterIsMadeOfSeveral)
{
    const TestLocale utf8(".UTF8");
    const OwnedWideString text = WideFromNarrow("\xC3\xA4\xE4\xB8\xAD!");
    EXPECT_STREQ(text.pointer, L"\x00E4\x4E2D!");
    EXPECT_EQ(text.length, 6u);
    EXPECT_EQ(text.capacity, 7u);
}

TEST_F(OwnedStringTest, GivesItsBlockBackWithItsSizeInBytes)
{
    const void* narrowBlock = NarrowFromWide(L"a text that needs a block of forty bytes").pointer;
    EXPECT_EQ(Allocate(41).pointer, narrowBlock);

    const void* wideBlock = WideFromNarrow("a text that needs a block of forty bytes").pointer;
    EXPECT_EQ(Allocate(82).pointer, wideBlock);

    const void* copyBlock = CopyWide(L"a copied text").pointer;
    EXPECT_EQ(Allocate(28).pointer, copyBlock);
}

TEST_F(OwnedStringTest, IsEmptyOnceItWasMoved)
{
    OwnedWideString source = CopyWide(L"a moved text");
    const wchar_t* text = source.pointer;
    const OwnedWideString target(std::move(source));
    EXPECT_EQ(target.pointer, text);
    EXPECT_EQ(target.length, 12u);
    EXPECT_EQ(target.capacity, 13u);
    EXPECT_EQ(source.pointer, nullptr);
    EXPECT_EQ(source.length, 0u);
    EXPECT_EQ(source.capacity, 0u);
}

TEST(OwnedStringWithoutMemory, HasNothingToGiveBackWithoutABlockOrACapacity)
{
    // There is no memory system here: a free would be a fault.
    char block = 'x';
    {
        const OwnedString none;
        OwnedString noCapacity;
        noCapacity.length = 1;
        noCapacity.pointer = &block;
        OwnedWideString noBlock;
        noBlock.length = 1;
        noBlock.capacity = 2;
    }
    EXPECT_EQ(block, 'x');
}
} // namespace Torvane::Testing
