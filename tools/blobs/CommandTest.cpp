#include "tools/blobs/Command.h"

#include "tools/blobs/Files.h"
#include "tools/blobs/TestRecording.h"

#include "gtest/gtest.h"

#include <nlohmann/json.hpp>

#include <algorithm>

using namespace Torvane;
using namespace Torvane::Blobs;
using namespace Torvane::Testing;

namespace
{
/// A name for a file of this test alone; the file is removed when the test ends.
class TestFile
{
public:
    explicit TestFile(const std::string& name)
        : path(std::string("blobs-") + testing::UnitTest::GetInstance()->current_test_info()->name() + "-" +
               name)
    {
        RemoveFile(path);
    }

    TestFile(const std::string& name, const std::string& content)
        : TestFile(name)
    {
        std::string reason;
        EXPECT_TRUE(WriteFile(path, content, false, reason)) << reason;
    }

    ~TestFile()
    {
        RemoveFile(path);
    }

    std::string Content() const
    {
        std::string content;
        std::string reason;
        EXPECT_TRUE(ReadFile(path, content, reason)) << reason;
        return content;
    }

    const std::string path;
};

/// A run that has to fail with one sentence, and to say nothing else.
void ExpectFailure(int exitCode, const std::string& sentence, const std::vector<std::string>& arguments)
{
    const Outcome outcome = RunCommand(arguments);
    EXPECT_EQ(exitCode, outcome.exitCode);
    EXPECT_EQ("blobs: " + sentence + "\n", outcome.error);
    EXPECT_EQ("", outcome.output);
}

std::string OutputOf(const std::vector<std::string>& arguments)
{
    const Outcome outcome = RunCommand(arguments);
    EXPECT_EQ(success, outcome.exitCode);
    EXPECT_EQ("", outcome.error);
    return outcome.output;
}

size_t LinesIn(const std::string& text)
{
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}
} // namespace

TEST(Command, ListsALineForEachBlob)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    const std::string list = OutputOf({"list", file.path});
    EXPECT_EQ(13u, LinesIn(list));
    EXPECT_NE(
        std::string::npos,
        list.find("     2      0.002000  <-    Version                             10  version=\"2.4.0\"\n"));
    EXPECT_NE(std::string::npos,
              list.find("    12      0.012000  ->    FinishAfterHotReload                 0\n"));
    EXPECT_EQ(std::string::npos, list.find("commandLine"));
    EXPECT_NE(std::string::npos,
              OutputOf({"list", file.path, "--whole"}).find("commandLine=\"Host.exe -x\"\n"));
}

TEST(Command, ListsWhatPassesTheFilter)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    EXPECT_EQ(4u, LinesIn(OutputOf({"list", file.path, "--type", "Version", "--type", "PatchLoaded"})));
    EXPECT_EQ(7u, LinesIn(OutputOf({"list", file.path, "--direction", "to-agent"})));
    EXPECT_EQ(7u, LinesIn(OutputOf({"list", file.path, "--direction", "from-agent"})));
    EXPECT_EQ(4u, LinesIn(OutputOf({"list", "--from", "0.002", "--to", "0.004", file.path})));
}

TEST(Command, ListsTheHostIfThereAreSeveral)
{
    const TestFile file("r.jsonl", TestRecording().To(MakeVersion(), 5).To(MakeVersion(), 77).Text());
    EXPECT_NE(std::string::npos, OutputOf({"list", file.path}).find("0.002000      77  ->    Version"));
}

TEST(Command, ShowsFieldsBesideTheirBytes)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    EXPECT_EQ("Blob 2: Version (0), from the Agent of process 1234, at 0.002000 s, 10 payload bytes\n"
              "000000  04 00 00 00                                      version                      narrow "
              "text at "
              "000004 \"2.4.0\"\n"
              "000004  32 2e 34 2e 30 00                                version\n",
              OutputOf({"show", file.path, "2"}));
    const std::string loaded = OutputOf({"show", file.path, "9"});
    EXPECT_NE(std::string::npos,
              loaded.find("000010  00 00 34 72 00 00 00 00                          base  "));
    EXPECT_NE(std::string::npos,
              loaded.find("    protection               number               64 (execute, read, write)\n"));
}

TEST(Command, ShowsAllBytesIfAsked)
{
    const TestFile file("r.jsonl",
                        TestRecording().From(MakeReadMemoryResult(std::vector<uint8_t>(300), 1)).Text());
    EXPECT_NE(std::string::npos, OutputOf({"show", file.path, "1"}).find("        ... 236 more bytes\n"));
    const std::string whole = OutputOf({"show", file.path, "1", "--whole"});
    EXPECT_EQ(std::string::npos, whole.find("more bytes"));
    EXPECT_NE(std::string::npos, whole.find("000138  00 00 00 00 00 00 00 00 00 00 00 00\n"));
}

TEST(Command, ListsTheTablesOfFields)
{
    const std::string layout = OutputOf({"layouts", "PatchLoaded"});
    EXPECT_EQ(0u, layout.find("PatchLoaded (18), from the Agent, 80 bytes\n"));
    EXPECT_NE(std::string::npos,
              layout.find("  0x0038     8  records           pageRanges of WirePageRange\n"));
    EXPECT_NE(std::string::npos, layout.find("\nWirePageRange, 24 bytes\n"));
    EXPECT_EQ(layout, OutputOf({"layouts", "18"}));
    EXPECT_NE(std::string::npos, OutputOf({"layouts"}).find("\nSynchronize (76), to the Agent, 0 bytes\n"));
    ExpectFailure(wrongUsage, "There is no type of Blob \"2\".", {"layouts", "2"});
}

TEST(Command, WritesATrace)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    const TestFile output("trace.json");
    EXPECT_EQ("", OutputOf({"trace", file.path, "--output", output.path}));
    EXPECT_EQ(29u, nlohmann::json::parse(output.Content())["traceEvents"].size());
}

TEST(Command, WritesAPageThatNothingInABlobCanBreak)
{
    const TestFile file(
        "r.jsonl",
        TestRecording().From(MakeLog(BlobLogLevel::Info, "</script><b>@SCRIPT@ \xE2\x80\xA8")).Text());
    const TestFile output("page.html");
    EXPECT_EQ("", OutputOf({"html", file.path, "--output", output.path}));
    const std::string page = output.Content();
    EXPECT_EQ(std::string::npos, page.find("</script><b>"));
    EXPECT_NE(std::string::npos, page.find("\\u003c/script>\\u003cb>@SCRIPT@ \\u2028"));
    EXPECT_EQ(std::string::npos, page.find("http:"));
    EXPECT_EQ(std::string::npos, page.find("https:"));
}

TEST(Command, ReplacesAFileOnlyByForce)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    const TestFile output("trace.json", "precious");
    ExpectFailure(failure, output.path + " can't be written: it exists already (--force replaces it).",
                  {"trace", file.path, "--output", output.path});
    EXPECT_EQ("precious", output.Content());
    EXPECT_EQ("", OutputOf({"trace", file.path, "--output", output.path, "--force"}));
    EXPECT_NE("precious", output.Content());
}

TEST(Command, NeverReplacesTheRecordingItself)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    ExpectFailure(wrongUsage, "The output ./" + file.path + " is the recording itself.",
                  {"html", file.path, "--output", "./" + file.path, "--force"});
    EXPECT_EQ(ReloadRecording().Text(), file.Content());
}

TEST(Command, TellsWhatCannotBeReadOrWritten)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    const TestFile missing("missing.jsonl");
    const TestFile broken("broken.jsonl", "hello\n");
    ExpectFailure(failure, missing.path + " can't be read: No such file or directory.",
                  {"list", missing.path});
    ExpectFailure(failure, ". can't be read: it is a folder.", {"list", "."});
    ExpectFailure(failure, broken.path + " can't be read: it isn't a recording of Blobs.",
                  {"show", broken.path, "1"});
    ExpectFailure(failure, missing.path + "/x can't be written: No such file or directory.",
                  {"trace", file.path, "--output", missing.path + "/x"});
    ExpectFailure(failure, ". can't be written: it is a folder.",
                  {"trace", file.path, "--output", ".", "--force"});
    ExpectFailure(failure, file.path + " has no Blob 13.", {"show", file.path, "13"});
}

TEST(Command, WritesNothingForABrokenRecording)
{
    const std::string text = ReloadRecording().Text();
    const TestFile broken("broken.jsonl", text + "{}\n");
    const TestFile output("page.html");
    ExpectFailure(failure, broken.path + " can't be read: line 14: it has no number \"blob\".",
                  {"html", broken.path, "--output", output.path});
    EXPECT_FALSE(Exists(output.path));
}

TEST(Command, SaysThatALineWasLeftOut)
{
    const TestFile file("r.jsonl", ReloadRecording().Text() + "{\"blob\":13,");
    const Outcome outcome = RunCommand({"list", file.path});
    EXPECT_EQ(success, outcome.exitCode);
    EXPECT_EQ(13u, LinesIn(outcome.output));
    EXPECT_EQ("blobs: The last line of " + file.path + " has no end, so it was left out.\n", outcome.error);
}

TEST(Command, TellsWrongUsageInASentence)
{
    ExpectFailure(wrongUsage, "Say what to do; \"blobs help\" lists what there is.", {});
    ExpectFailure(wrongUsage, "There is no \"blobs frobnicate\"; \"blobs help\" lists what there is.",
                  {"frobnicate"});
    ExpectFailure(wrongUsage, "\"blobs list\" needs a recording.", {"list"});
    ExpectFailure(wrongUsage, "\"blobs show\" needs the number of a Blob.", {"show", "r"});
    ExpectFailure(wrongUsage, "The argument \"s\" is one too many.", {"list", "r", "s"});
    ExpectFailure(wrongUsage, "\"blobs html\" needs --output and the name of a file.", {"html", "r"});
    ExpectFailure(wrongUsage, "There is no option --output for \"blobs list\".",
                  {"list", "r", "--output", "x"});
    ExpectFailure(wrongUsage, "The option --output needs a value.", {"trace", "r", "--output"});
    ExpectFailure(wrongUsage, "There is no type of Blob \"Verison\".", {"list", "r", "--type", "Verison"});
    ExpectFailure(wrongUsage, "A direction is to-agent or from-agent, not \"up\".",
                  {"list", "r", "--direction", "up"});
    ExpectFailure(wrongUsage, "\"soon\" isn't a number of seconds.", {"list", "r", "--from", "soon"});
    const TestFile file("r.jsonl", ReloadRecording().Text());
    ExpectFailure(wrongUsage, "\"x\" isn't the number of a Blob.", {"show", file.path, "x"});
}

TEST(Command, HelpsOnItsOutput)
{
    EXPECT_EQ(0u, OutputOf({"help"}).find("blobs list RECORDING"));
    EXPECT_EQ(OutputOf({"help"}), OutputOf({"--help"}));
}
