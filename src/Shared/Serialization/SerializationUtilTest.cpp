#include "Shared/Serialization/SerializationUtil.h"

#include "tests/Support/JsonTestTree.h"
#include "tests/Support/TestMemorySystem.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#endif

namespace Torvane::Testing
{
namespace
{
class PreferenceTest : public testing::Test
{
protected:
    PreferenceTest()
    {
        AssignText(text, "before", 6);
    }

    int32_t ReadNumber(std::string_view document)
    {
        const JsonTree tree = ParseInSteps(document);
        EXPECT_TRUE(tree.accepted) << document;
        ReadPreference(tree.Root(), "Network", number);
        return number.value;
    }

    std::string ReadText(std::string_view document)
    {
        const JsonTree tree = ParseInSteps(document);
        EXPECT_TRUE(tree.accepted) << document;
        ReadPreference(tree.Root(), "General", text);
        return text.GetText();
    }

private:
    TestMemorySystem memory;

protected:
    IntPreference number = {"timeout", 7};
    StringPreference text = {"directoryToBroker", {}};
};

int32_t Integer(const char* text)
{
    return ReadInteger({text, static_cast<uint32_t>(strlen(text))});
}

TEST(PreferenceNumber, IsReadUpToTheFirstCharacterThatIsNoDigit)
{
    EXPECT_EQ(Integer("0"), 0);
    EXPECT_EQ(Integer("1500"), 1500);
    EXPECT_EQ(Integer("1500.9"), 1500);
    EXPECT_EQ(Integer("12.7"), 12);
    EXPECT_EQ(Integer("1e3"), 1);
    EXPECT_EQ(Integer("12x34"), 12);
    EXPECT_EQ(Integer("007"), 7);
}

TEST(PreferenceNumber, HasASignOfEitherKind)
{
    EXPECT_EQ(Integer("-1"), -1);
    EXPECT_EQ(Integer("-12.7"), -12);
    EXPECT_EQ(Integer("+5"), 5);
    EXPECT_EQ(Integer("-0"), 0);
}

TEST(PreferenceNumber, IsZeroWithoutDigits)
{
    EXPECT_EQ(Integer(""), 0);
    EXPECT_EQ(Integer("-"), 0);
    EXPECT_EQ(Integer("+"), 0);
    EXPECT_EQ(Integer("--1"), 0);
    EXPECT_EQ(Integer(" 1"), 0);
}

TEST(PreferenceNumber, KeepsItsLow32Bits)
{
    EXPECT_EQ(Integer("2147483647"), INT32_MAX);
    EXPECT_EQ(Integer("-2147483648"), INT32_MIN);
    EXPECT_EQ(Integer("2147483648"), INT32_MIN);
    EXPECT_EQ(Integer("4294967295"), -1);
    EXPECT_EQ(Integer("4294967301"), 5);
    EXPECT_EQ(Integer("-4294967301"), -5);
    EXPECT_EQ(Integer("18446744073709551617"), 1);
    EXPECT_EQ(Integer("-18446744073709551617"), -1);
}

TEST_F(PreferenceTest, OfANumberHasTheValueOfItsKey)
{
    EXPECT_EQ(ReadNumber(R"({"Network":{"timeout":1500}})"), 1500);
    EXPECT_EQ(ReadNumber(R"({"General":{"timeout":1},"Network":{"x":2,"timeout":-3.5,"y":4},"Z":[]})"), -3);
}

TEST_F(PreferenceTest, OfAStringHasTheValueOfItsKey)
{
    EXPECT_EQ(ReadText(R"({"General":{"directoryToBroker":"C:\\Tools\\Broker"}})"), "C:\\Tools\\Broker");
    EXPECT_EQ(text.value.Get().size, 16u);
    EXPECT_EQ(ReadText(R"({"General":{"directoryToBroker":""}})"), "");
    EXPECT_EQ(text.value.Get().size, 1u);
}

TEST_F(PreferenceTest, IsUnchangedWithoutItsKeyOrSection)
{
    for (const char* document : {"{}", R"({"Network":{}})", R"({"Network":{"other":1}})", R"({"timeout":1})",
                                 R"({"Other":{"timeout":1}})", R"({"Network":{"Network":{"timeout":1}}})",
                                 R"({"Other":{"Network":{"timeout":1}}})"})
    {
        EXPECT_EQ(ReadNumber(document), 7) << document;
    }
    EXPECT_EQ(ReadText(R"({"General":{"other":"x"},"Network":{"directoryToBroker":"x"}})"), "before");
}

TEST_F(PreferenceTest, ComparesNamesByteByByte)
{
    for (const char* document :
         {R"({"network":{"timeout":1}})", R"({"NETWORK":{"timeout":1}})", R"({"Network":{"Timeout":1}})",
          R"({"Network ":{"timeout":1}})", R"({"Networ":{"timeout":1}})", R"({"Network":{"timeout1":1}})",
          R"({"Network\u0000":{"timeout":1}})", R"({"Network":{"timeout\u0000x":1}})", R"({"":{"":1}})"})
    {
        EXPECT_EQ(ReadNumber(document), 7) << document;
    }
    EXPECT_EQ(ReadNumber(R"({"\u004eetwork":{"time\u006fut":1}})"), 1);
}

TEST_F(PreferenceTest, SkipsValuesOfOtherTypes)
{
    for (const char* value : {"\"5\"", "true", "false", "null", "[5]", "{\"timeout\":5}"})
    {
        EXPECT_EQ(ReadNumber(R"({"Network":{"timeout":)" + std::string(value) + "}}"), 7) << value;
    }
    for (const char* value : {"5", "true", "false", "null", "[\"x\"]", "{\"directoryToBroker\":\"x\"}"})
    {
        EXPECT_EQ(ReadText(R"({"General":{"directoryToBroker":)" + std::string(value) + "}}"), "before")
            << value;
    }
    EXPECT_EQ(ReadNumber(R"({"Network":{"timeout":5,"timeout":"6"}})"), 5);
}

TEST_F(PreferenceTest, SkipsSectionsThatAreNoObjects)
{
    for (const char* section : {"5", "\"x\"", "true", "null", "[{\"timeout\":5}]", "[]"})
    {
        EXPECT_EQ(ReadNumber(R"({"Network":)" + std::string(section) + "}"), 7) << section;
    }
    EXPECT_EQ(ReadNumber(R"({"Network":1,"Network":{"timeout":5},"Network":[6]})"), 5);
}

TEST_F(PreferenceTest, UsesTheLastOfSeveralKeysAndSections)
{
    EXPECT_EQ(ReadNumber(R"({"Network":{"timeout":1,"timeout":2}})"), 2);
    EXPECT_EQ(ReadNumber(R"({"Network":{"timeout":3},"Network":{"timeout":4}})"), 4);
    EXPECT_EQ(ReadNumber(R"({"Network":{"timeout":5},"Network":{"x":6}})"), 5);
    EXPECT_EQ(ReadText(R"({"General":{"directoryToBroker":"a","directoryToBroker":"bc"}})"), "bc");
    EXPECT_EQ(text.value.Get().size, 3u);
}

TEST_F(PreferenceTest, CopiesAStringWithAllItsBytes)
{
    ReadText(R"({"General":{"directoryToBroker":"a\u0000b\u00e9"}})");
    EXPECT_EQ(text.value.Get().size, 6u);
    EXPECT_EQ(std::string_view(text.GetText(), text.value.Get().size), std::string_view("a\0b\xC3\xA9\0", 6));
}

TEST_F(PreferenceTest, IsEmptyAfterItWasMoved)
{
    const StringPreference moved = std::move(text);
    EXPECT_STREQ(moved.GetText(), "before");
    EXPECT_STREQ(moved.key, "directoryToBroker");
    EXPECT_EQ(text.GetText(), nullptr);
    EXPECT_EQ(text.value.Get().size, 0u);
    EXPECT_STREQ(text.key, "directoryToBroker");
}

#ifdef _WIN32
constexpr int nullPointerRead = 77;

LONG CALLBACK EndAtNullPointerRead(EXCEPTION_POINTERS* exception)
{
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.ExceptionInformation[0] == 0 &&
        record.ExceptionInformation[1] == 0)
    {
        TerminateProcess(GetCurrentProcess(), nullPointerRead);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

void ReadInChild(const JsonValue& root)
{
    IntPreference preference = {"timeout", 7};
    AddVectoredExceptionHandler(1, &EndAtNullPointerRead);
    ReadPreference(root, "Network", preference);
}

#define EXPECT_NULL_POINTER_READ(root) \
    EXPECT_EXIT(ReadInChild(root), testing::ExitedWithCode(nullPointerRead), "")
#else
void ReadInChild(const JsonValue& root)
{
    IntPreference preference = {"timeout", 7};
    ReadPreference(root, "Network", preference);
}

#define EXPECT_NULL_POINTER_READ(root) EXPECT_DEATH(ReadInChild(root), "null pointer|SEGV on unknown address")
#endif

TEST(PreferenceDeathTest, ReadsARootThatIsNoObjectThroughANullPointer)
{
    for (const char* document : {"[]", "[1,2]", "5", "\"Network\"", "true", "false", "null"})
    {
        const JsonTree tree = ParseInSteps(document);
        ASSERT_TRUE(tree.accepted);
        EXPECT_NULL_POINTER_READ(tree.Root()) << document;
    }
}
} // namespace
} // namespace Torvane::Testing
