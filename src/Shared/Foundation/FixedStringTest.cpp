#include "Shared/Foundation/FixedString.h"

#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>
#include <string>
#include <type_traits>

namespace Torvane::Testing
{
namespace
{
constexpr uint32_t longestText = 1023;

template<typename String>
struct Characters;

template<>
struct Characters<FixedString>
{
    using Type = char;
};

template<>
struct Characters<FixedWideString>
{
    using Type = wchar_t;
};

/// What holds for both types.
template<typename String>
class FixedText : public testing::Test
{
protected:
    using Character = typename Characters<String>::Type;

    /// A terminated text of one character many times.
    struct Repeated
    {
        Repeated(char character, uint32_t count)
        {
            for (uint32_t i = 0; i < count; ++i)
            {
                text[i] = static_cast<Character>(character);
            }
            text[count] = 0;
        }

        Character text[4096];
    };

    /// A value whose every byte was something before.
    FixedText()
    {
        memset(&string, 0x7E, sizeof(string));
    }

    static void ExpectText(const String& actual, const std::string& expected)
    {
        EXPECT_EQ(actual.length, expected.size());
        ExpectUnits(actual, expected);
    }

    static void ExpectUnits(const String& actual, const std::string& expected)
    {
        for (size_t i = 0; i < expected.size(); ++i)
        {
            ASSERT_EQ(actual.text[i], static_cast<Character>(expected[i])) << "character " << i;
        }
        EXPECT_EQ(actual.text[expected.size()], 0) << "no terminator";
    }

    Character Untouched() const
    {
        Character character = 0;
        memset(&character, 0x7E, sizeof(character));
        return character;
    }

    String string;
};

using BothWidths = testing::Types<FixedString, FixedWideString>;
TYPED_TEST_SUITE(FixedText, BothWidths);
} // namespace

TEST(FixedString, IsALengthAndThenTheText)
{
    EXPECT_EQ(sizeof(FixedString), 1028u);
    EXPECT_EQ(offsetof(FixedString, length), 0u);
    EXPECT_EQ(offsetof(FixedString, text), 4u);
    EXPECT_EQ(sizeof(FixedWideString), 2052u);
    EXPECT_EQ(offsetof(FixedWideString, length), 0u);
    EXPECT_EQ(offsetof(FixedWideString, text), 4u);
    EXPECT_TRUE(std::is_trivial_v<FixedString> && std::is_standard_layout_v<FixedString>);
    EXPECT_TRUE(std::is_trivial_v<FixedWideString> && std::is_standard_layout_v<FixedWideString>);
}

TYPED_TEST(FixedText, TakesOverATextWithItsTerminatorAndNothingMore)
{
    const typename TestFixture::Repeated source('x', 5);
    this->string.Assign(source.text);
    this->ExpectText(this->string, "xxxxx");
    EXPECT_EQ(this->string.text[6], this->Untouched());
}

TYPED_TEST(FixedText, ForgetsTheEarlierTextWhenItTakesOverAnother)
{
    const typename TestFixture::Repeated first('x', 5);
    const typename TestFixture::Repeated second('y', 2);
    this->string.Assign(first.text);
    this->string.Assign(second.text);
    this->ExpectText(this->string, "yy");
}

TYPED_TEST(FixedText, TakesOverAnEmptyText)
{
    const typename TestFixture::Repeated source('x', 0);
    this->string.Assign(source.text);
    this->ExpectText(this->string, "");
}

TYPED_TEST(FixedText, HoldsATextOf1023Characters)
{
    const typename TestFixture::Repeated source('x', longestText);
    this->string.Assign(source.text);
    this->ExpectText(this->string, std::string(longestText, 'x'));
}

TYPED_TEST(FixedText, AppendsAndTerminates)
{
    const typename TestFixture::Repeated first('x', 3);
    const typename TestFixture::Repeated second('y', 4);
    this->string.Assign(first.text);
    this->string.Append(second.text);
    this->ExpectText(this->string, "xxxyyyy");
    this->string.Append(first.text);
    this->ExpectText(this->string, "xxxyyyyxxx");
    EXPECT_EQ(this->string.text[11], this->Untouched());
}

TYPED_TEST(FixedText, AppendsUpToTheLastCharacter)
{
    const typename TestFixture::Repeated first('x', 1000);
    const typename TestFixture::Repeated second('y', 23);
    this->string.Assign(first.text);
    this->string.Append(second.text);
    this->ExpectText(this->string, std::string(1000, 'x') + std::string(23, 'y'));
}

TYPED_TEST(FixedText, AppendsNothing)
{
    const typename TestFixture::Repeated first('x', 3);
    const typename TestFixture::Repeated nothing('y', 0);
    this->string.Assign(first.text);
    this->string.Append(nothing.text);
    this->ExpectText(this->string, "xxx");
}

TYPED_TEST(FixedText, FormatsInThePlaceOfTheEarlierText)
{
    const typename TestFixture::Repeated first('x', 9);
    static constexpr typename TestFixture::Character format[] = {'a', '%', 'u', 'b', 0};
    this->string.Assign(first.text);
    this->string.Format(format, 42u);
    this->ExpectText(this->string, "a42b");
    EXPECT_EQ(this->string.text[5], static_cast<typename TestFixture::Character>('x'))
        << "what follows the terminator stays";
}

TYPED_TEST(FixedText, FormatsAnEmptyText)
{
    const typename TestFixture::Repeated first('x', 9);
    const typename TestFixture::Repeated nothing('y', 0);
    static constexpr typename TestFixture::Character format[] = {'%', 's', 0};
    this->string.Assign(first.text);
    this->string.Format(format, nothing.text);
    this->ExpectText(this->string, "");
}

TYPED_TEST(FixedText, FormatsATextOf1023Characters)
{
    static constexpr typename TestFixture::Character format[] = {'%', '1', '0', '2', '3', 'u', 0};
    this->string.Format(format, 1u);
    this->ExpectText(this->string, std::string(longestText - 1, ' ') + "1");
}

TYPED_TEST(FixedText, KeepsTheLengthWhenAFormattedTextIsCut)
{
    const typename TestFixture::Repeated first('x', 7);
    const typename TestFixture::Repeated tooLong('y', longestText + 1);
    static constexpr typename TestFixture::Character format[] = {'%', 's', 0};
    this->string.Assign(first.text);
    this->string.Format(format, tooLong.text);
    EXPECT_EQ(this->string.length, 7u);
    this->ExpectUnits(this->string, std::string(longestText, 'y'));
}

TYPED_TEST(FixedText, CutsWithinItsOwnBytes)
{
    struct
    {
        TypeParam string;
        typename TestFixture::Character next;
    } value = {};
    const typename TestFixture::Repeated tooLong('y', 3000);
    static constexpr typename TestFixture::Character format[] = {'%', 's', 0};
    value.next = 'b';
    value.string.Format(format, tooLong.text);
    EXPECT_EQ(value.next, static_cast<typename TestFixture::Character>('b'));
    EXPECT_EQ(value.string.length, 0u);
}

TEST(FixedString, FormatsNarrowAndWideText)
{
    FixedString string = {};
    string.Format("%hs(%d) %ls", "Sender.cpp", 12, L"\x20AC");
    EXPECT_STREQ(string.text, "Sender.cpp(12) \xE2\x82\xAC");
    EXPECT_EQ(string.length, 18u) << "bytes, not code points";
}

TEST(FixedWideString, FormatsUtf16AndNumbers)
{
    FixedWideString string = {};
    string.Format(L"%ls%u", L"\xD83D\xDE00", 7u);
    EXPECT_EQ(string.length, 3u) << "units, not code points";
    EXPECT_EQ(std::u16string(string.text, string.text + 3), u"\U0001F6007");
}

TEST(FixedWideString, IsCopiedAsAWhole)
{
    FixedWideString string;
    memset(&string, 0x31, sizeof(string));
    string.Assign(L"a");
    const FixedWideString copy = string;
    EXPECT_EQ(memcmp(&copy, &string, sizeof(string)), 0);
}
} // namespace Torvane::Testing
