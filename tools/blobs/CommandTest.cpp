#include "tests/Support/BlobsCommand.h"
#include "tests/Support/WrittenRecording.h"

#include "gtest/gtest.h"

#include <nlohmann/json.hpp>

#include <algorithm>

using namespace Torvane;
using namespace Torvane::Blobs;
using namespace Torvane::Testing;

namespace
{
size_t LinesIn(const std::string& text)
{
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

size_t CountOf(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t i = text.find(part); i != std::string::npos; i = text.find(part, i + 1))
    {
        ++count;
    }
    return count;
}

/// What a list shows of the fields of its only Blob.
std::string ListedFields(const TestRecording& recording)
{
    const TestFile file("fields.jsonl", recording.Text());
    const std::string list = OutputOf({"list", file.path});
    constexpr size_t place = 68; // in the line
    const size_t begin = list.find('\n') + 1 + place;
    return list.substr(begin, list.size() - begin - 1);
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

TEST(Command, ListsFirstWhatAReaderLooksFor)
{
    EXPECT_EQ(0u,
              ListedFields(TestRecording().From(MakeException(21, 0x100)))
                  .find("record.code=0xC0000005 (EXCEPTION_ACCESS_VIOLATION) record.address=0x00401234 thr"));
    EXPECT_EQ(0u,
              ListedFields(TestRecording().From(MakeRegisterProcess(1234))).find("executablePath=\"C:\\\\"));
    EXPECT_EQ(0u, ListedFields(TestRecording().From(MakeEnableModules(2, 0x5000)))
                      .find("modules.path=\"A.dll\", \"A.dll\" "));
    EXPECT_EQ(0u, ListedFields(TestRecording().From(MakePatchLoaded(u"C:\\2.dll")))
                      .find("patchPath=\"C:\\\\2.dll\" base=0x72340000 imageSize="));
}

TEST(Command, ListsTheEndsOfLongPaths)
{
    const std::u16string folder(80, u'f');
    const std::string fields =
        ListedFields(TestRecording().To(MakeLoadPatch(u"C:\\" + folder + u"\\patch.dll")));
    EXPECT_EQ("patchPath=\"..." + std::string(47, 'f') + "\\\\patch.dll\" ", fields.substr(0, 74));
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
              "000000  04 00 00 00                                      version                      ANSI "
              "string at "
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
              layout.find("  0x0038     8  records              pageRanges of WirePageRange\n"));
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
    EXPECT_EQ(45u, nlohmann::json::parse(output.Content())["traceEvents"].size());
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
    EXPECT_EQ(std::string::npos, page.find("@SCRIPT@"));
    EXPECT_EQ(std::string::npos, page.find("@DATA@"));
    EXPECT_EQ(2u, CountOf(page, "<script"));
    EXPECT_EQ(2u, CountOf(page, "</script>"));
    EXPECT_EQ(std::string::npos, page.find("http:"));
    EXPECT_EQ(std::string::npos, page.find("https:"));
}

TEST(Command, SaysThatALineWasLeftOut)
{
    const TestFile file("r.jsonl", ReloadRecording().Text() + "{\"blob\":13,");
    const Outcome outcome = RunCommand({"list", file.path});
    EXPECT_EQ(success, outcome.exitCode);
    EXPECT_EQ(13u, LinesIn(outcome.output));
    EXPECT_EQ("blobs: The last line of " + file.path + " has no end, so it was left out.\n", outcome.error);
}

TEST(Command, HelpsOnItsOutput)
{
    EXPECT_EQ(0u, OutputOf({"help"}).find("blobs list RECORDING"));
    EXPECT_EQ(OutputOf({"help"}), OutputOf({"--help"}));
    EXPECT_EQ("blobs 2.4.0\n", OutputOf({"--version"}));
}
