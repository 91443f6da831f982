#include "tools/blobs/Recording.h"

#include "tests/Support/WrittenRecording.h"
#include "tools/blobs/Filter.h"

#include "gtest/gtest.h"

using namespace Torvane;
using namespace Torvane::Blobs;
using namespace Torvane::Testing;

namespace
{
/// The reason why a recording is rejected; empty if it isn't.
std::string ReasonOf(const std::string& text)
{
    Recording recording;
    std::string reason;
    return ParseRecording(text, recording, reason) ? "" : reason;
}

/// A recording of one Blob, with a part of its line replaced.
std::string Changed(const std::string& part, const std::string& replacement)
{
    std::string text = TestRecording().To(MakeVersion()).Text();
    const size_t position = text.rfind(part);
    EXPECT_NE(std::string::npos, position) << part;
    return text.replace(position, part.size(), replacement);
}

std::vector<uint64_t> NumbersOf(const Filter& filter, const Recording& recording)
{
    std::vector<uint64_t> numbers;
    for (const RecordedBlob* blob : filter.Choose(recording))
    {
        numbers.push_back(blob->number);
    }
    return numbers;
}
} // namespace

TEST(Recording, IsReadAsItWasWritten)
{
    const TestRecording written = ReloadRecording();
    Recording recording;
    std::string reason;
    ASSERT_TRUE(ParseRecording(written.Text(), recording, reason)) << reason;
    EXPECT_EQ(99u, recording.header.bridgeProcessId);
    EXPECT_EQ("2024-02-29T12:34:56.789Z", recording.header.startedAt);
    EXPECT_FALSE(recording.isCut);
    ASSERT_EQ(12u, recording.blobs.size());
    for (size_t i = 0; i < recording.blobs.size(); ++i)
    {
        const RecordedBlob& expected = written.Get().blobs[i];
        EXPECT_EQ(expected.number, recording.blobs[i].number);
        EXPECT_DOUBLE_EQ(expected.time, recording.blobs[i].time);
        EXPECT_EQ(expected.hostProcessId, recording.blobs[i].hostProcessId);
        EXPECT_EQ(expected.direction, recording.blobs[i].direction);
        EXPECT_EQ(expected.bytes, recording.blobs[i].bytes);
    }
}

TEST(Recording, LeavesOutALastLineWithoutItsEnd)
{
    const std::string text = ReloadRecording().Text();
    Recording recording;
    std::string reason;
    ASSERT_TRUE(ParseRecording(text.substr(0, text.size() - 1), recording, reason)) << reason;
    EXPECT_TRUE(recording.isCut);
    EXPECT_EQ(11u, recording.blobs.size());
}

TEST(Recording, IsRefusedWhenItIsSomethingElse)
{
    EXPECT_EQ("it is empty", ReasonOf(""));
    for (const char* text :
         {"\n", "hello\n", "[]\n", "{}\n", "{\"recording\":1}\n", "{\"recording\":\"x\"}\n", "\xFF\n"})
    {
        EXPECT_EQ("it isn't a recording of Blobs", ReasonOf(text)) << text;
    }
    EXPECT_EQ("it is a recording of another format than 1",
              ReasonOf("{\"recording\":\"Torvane Blobs\",\"format\":2}\n"));
    EXPECT_EQ("", ReasonOf("{\"recording\":\"Torvane Blobs\",\"format\":1}\n"));
}

TEST(Recording, IsRefusedWithTheLineThatIsBroken)
{
    EXPECT_EQ("line 2: it isn't a JSON object", ReasonOf(Changed("{\"blob\":1", "{blob:1")));
    EXPECT_EQ("line 2: it has no number \"blob\"", ReasonOf(Changed("\"blob\":1", "\"blob\":-1")));
    EXPECT_EQ("line 2: its number \"blob\" isn't above that of the line before",
              ReasonOf(Changed("\"blob\":1", "\"blob\":0")));
    EXPECT_EQ("line 2: it has no \"time\" in seconds", ReasonOf(Changed("0.001", "-0.001")));
    EXPECT_EQ("line 2: it has no \"time\" in seconds", ReasonOf(Changed("0.001", "1e300")));
    EXPECT_EQ("line 2: it has no process id \"host\"", ReasonOf(Changed("1234", "4294967296")));
    EXPECT_EQ("line 2: its \"direction\" is neither \"fromAgent\" nor \"toAgent\"",
              ReasonOf(Changed("\"toAgent\"", "\"up\"")));
    EXPECT_EQ("line 2: it has no \"bytes\" in hexadecimal digits", ReasonOf(Changed("\"0a00", "\"0x00")));
    EXPECT_EQ("line 2: it has no \"bytes\" in hexadecimal digits", ReasonOf(Changed("\"0a00", "\"a00")));
    EXPECT_EQ("line 2: its bytes are of another size than their header says",
              ReasonOf(Changed("\"0a00", "\"0b00")));
    EXPECT_EQ("line 2: its bytes are too few for a Blob",
              ReasonOf(Changed("0a0000000000000004000000322e342e3000", "0a00000000")));
}

TEST(Filter, ChoosesByTypeDirectionAndTime)
{
    const TestRecording kept = ReloadRecording();
    Filter filter;
    std::string unknown;
    EXPECT_EQ(12u, NumbersOf(filter, kept.Get()).size());
    ASSERT_TRUE(filter.AddTypes("Version,17", unknown));
    EXPECT_EQ(std::vector<uint64_t>({1, 2, 6, 8}), NumbersOf(filter, kept.Get()));
    filter.isFromAgentWanted = false;
    EXPECT_EQ(std::vector<uint64_t>({1, 6, 8}), NumbersOf(filter, kept.Get()));
    filter.from = 0.002;
    filter.to = 0.0075;
    EXPECT_EQ(std::vector<uint64_t>({6}), NumbersOf(filter, kept.Get()));
}

TEST(Filter, MatchesTypesWithoutCase)
{
    Filter filter;
    std::string unknown;
    ASSERT_TRUE(filter.AddTypes("VERSION,patchloaded,readMemory", unknown)) << unknown;
    EXPECT_EQ(std::set<BlobType>({BlobType::Version, BlobType::PatchLoaded, BlobType::ReadMemory}),
              filter.types);
}

TEST(Filter, TellsTypesThatThereAreNot)
{
    Filter filter;
    std::string unknown;
    EXPECT_FALSE(filter.AddTypes("Reload,reloads", unknown));
    EXPECT_EQ("reloads", unknown);
    EXPECT_FALSE(filter.AddTypes("Reload,", unknown));
    EXPECT_EQ("", unknown);
    EXPECT_FALSE(filter.AddTypes("4294967296", unknown));
    EXPECT_TRUE(filter.AddTypes("4294967295", unknown));
}

TEST(Filter, ReadsNumbersWithNothingAround)
{
    double seconds = 0;
    EXPECT_TRUE(ParseSeconds("1.5", seconds));
    EXPECT_EQ(1.5, seconds);
    EXPECT_TRUE(ParseSeconds(".25", seconds));
    EXPECT_EQ(0.25, seconds);
    for (const char* text : {"", ".", "1s", " 1", "-1", "1.2.3", "1e3", "0x10"})
    {
        EXPECT_FALSE(ParseSeconds(text, seconds)) << text;
    }
    uint64_t number = 0;
    EXPECT_TRUE(ParseNumber("42", number));
    EXPECT_EQ(42u, number);
    EXPECT_FALSE(ParseNumber("4 2", number));
    EXPECT_FALSE(ParseNumber("-4", number));
}
