#include "tests/Support/BlobsCommand.h"
#include "tests/Support/WrittenRecording.h"

#include "gtest/gtest.h"

#ifndef _WIN32
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

using namespace Torvane::Blobs;
using namespace Torvane::Testing;

// Error messages of the command for arguments and files that it can't use.

namespace
{
using Arguments = std::vector<std::string>;

/// Arguments of every verb that reads a recording.
std::vector<Arguments> RunsOf(const std::string& recording, const std::string& output)
{
    return {{"list", recording},
            {"show", recording, "1"},
            {"trace", recording, "--output", output},
            {"html", recording, "--output", output}};
}

/// Neither the output file nor its temporary file exists.
void ExpectNothingWritten(const std::string& output)
{
    EXPECT_FALSE(Exists(output));
    EXPECT_FALSE(Exists(output + "." + std::to_string(CurrentProcess()) + ".part"));
}

std::string Replaced(std::string text, const std::string& part, const std::string& replacement)
{
    const size_t position = text.find(part);
    EXPECT_NE(std::string::npos, position) << part;
    return text.replace(position, part.size(), replacement);
}
} // namespace

TEST(CommandErrors, NoVerbTakesAFileThatIsNoRecording)
{
    const std::string good = ReloadRecording().Text();
    const std::string header = good.substr(0, good.find('\n') + 1);
    const std::string foreign = "it isn't a recording of Blobs";
    const struct
    {
        const char* name;
        std::string content;
        std::string reason;
    } inputs[] = {
        {"empty", "", "it is empty"},
        {"an empty line", "\n", foreign},
        {"a text", "hello\n", foreign},
        {"bytes", std::string("MZ\x90\0\xFF\n\0", 7), foreign},
        {"foreign JSON", "{\"traceEvents\":[]}\n", foreign},
        {"foreign JSON lines", "{\"level\":1}\n{\"level\":2}\n", foreign},
        {"a JSON list", "[" + header + "]\n", foreign},
        {"a first line that is cut", header.substr(0, 20), foreign},
        {"the lines of Blobs alone", good.substr(header.size()), foreign},
        {"another version", Replaced(good, "\"format\":1", "\"format\":2"),
         "it is a recording of another format than 1"},
        {"no version", Replaced(good, "\"format\":1,", ""), "it is a recording of another format than 1"},
        {"a line cut within", Replaced(good, "\"blob\":4,", "\"blo\n"), "line 5: it isn't a JSON object"},
        {"an empty line within", header + "\n" + good.substr(header.size()),
         "line 2: it isn't a JSON object"},
        {"a foreign line at the end", good + "{}\n", "line 14: it has no number \"blob\""},
        {"two recordings in one", good + good, "line 14: it has no number \"blob\""},
    };
    for (const auto& input : inputs)
    {
        SCOPED_TRACE(input.name);
        const TestFile file("r.jsonl", input.content);
        const TestFile output("output");
        for (const Arguments& run : RunsOf(file.path, output.path))
        {
            SCOPED_TRACE(run[0]);
            ExpectFailure(failure, file.path + " can't be read: " + input.reason + ".", run);
            ExpectNothingWritten(output.path);
        }
        EXPECT_EQ(input.content, file.Content());
    }
}

TEST(CommandErrors, NoVerbTakesWhatIsNoFile)
{
    const TestFile output("output");
    const TestFile missing("missing.jsonl");
    const std::pair<std::string, const char*> inputs[] = {
        {missing.path, "No such file or directory"},
        {missing.path + "/x", "No such file or directory"},
        {".", "it is a folder"},
        {"./", "it is a folder"},
    };
    for (const auto& [path, reason] : inputs)
    {
        for (const Arguments& run : RunsOf(path, output.path))
        {
            SCOPED_TRACE(run[0]);
            ExpectFailure(failure, path + " can't be read: " + reason + ".", run);
            ExpectNothingWritten(output.path);
        }
    }
}

TEST(CommandErrors, NoExportReplacesOrBreaksAnything)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    const TestFile precious("precious", "precious");
    const TestFile missing("missing");
    const struct
    {
        std::string output;
        const char* reason;
        bool isForced;
    } outputs[] = {
        {precious.path, "it exists already (--force replaces it)", false},
        {".", "it exists already (--force replaces it)", false},
        {".", "it is a folder", true},
        {missing.path + "/x", "No such file or directory", false},
        {missing.path + "/x", "No such file or directory", true},
    };
    for (const char* verb : {"trace", "html"})
    {
        for (const auto& output : outputs)
        {
            SCOPED_TRACE(verb + (" " + output.output));
            Arguments run = {verb, file.path, "--output", output.output};
            if (output.isForced)
            {
                run.push_back("--force");
            }
            ExpectFailure(failure, output.output + " can't be written: " + output.reason + ".", run);
        }
        const Outcome behindAFile = RunCommand({verb, file.path, "--output", precious.path + "/x"});
        EXPECT_EQ(failure, behindAFile.exitCode);
        EXPECT_EQ(0u, behindAFile.error.find("blobs: " + precious.path + "/x can't be written: "));
        ExpectNothingWritten(missing.path);
        EXPECT_EQ("precious", precious.Content());
        EXPECT_EQ(ReloadRecording().Text(), file.Content());
    }
}

TEST(CommandErrors, AFileIsReplacedByForce)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    const TestFile output("trace.json", "precious");
    EXPECT_EQ("", OutputOf({"trace", file.path, "--output", output.path, "--force"}));
    EXPECT_NE("precious", output.Content());
}

TEST(CommandErrors, TheRecordingItselfIsNeverReplaced)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    ExpectFailure(wrongUsage, "The output ./" + file.path + " is the recording itself.",
                  {"html", file.path, "--output", "./" + file.path, "--force"});
    EXPECT_EQ(ReloadRecording().Text(), file.Content());
}

#ifndef _WIN32
TEST(CommandErrors, ADeviceIsNotReplaced)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    const TestFile link("link");
    ASSERT_EQ(0, symlink("/dev/null", link.path.c_str()));
    for (const char* verb : {"trace", "html"})
    {
        ExpectFailure(failure, link.path + " can't be written: it is a device.",
                      {verb, file.path, "--output", link.path, "--force"});
    }
    EXPECT_TRUE(IsSameFile("/dev/null", link.path));
}

TEST(CommandErrors, NothingIsLeftWhereThereIsNoRoom)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    const TestFile output("output");
    const TestFile precious("precious", "precious");
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &limit));
    const rlim_t usual = limit.rlim_cur;
    for (const char* verb : {"trace", "html"})
    {
        limit.rlim_cur = 1000;
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
        const Outcome created = RunCommand({verb, file.path, "--output", output.path});
        const Outcome replaced = RunCommand({verb, file.path, "--output", precious.path, "--force"});
        limit.rlim_cur = usual;
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
        EXPECT_EQ(failure, created.exitCode);
        EXPECT_EQ("blobs: " + output.path + " can't be written: File too large.\n", created.error);
        EXPECT_EQ(failure, replaced.exitCode);
        ExpectNothingWritten(output.path);
        EXPECT_EQ("precious", precious.Content());
    }
    signal(SIGXFSZ, SIG_DFL);
}
#endif

TEST(CommandErrors, WrongUsageIsToldBeforeAnyFileIsTouched)
{
    const std::pair<Arguments, const char*> runs[] = {
        {{}, "Say what to do; \"blobs help\" lists what there is."},
        {{""}, "Say what to do; \"blobs help\" lists what there is."},
        {{"frobnicate"}, "There is no \"blobs frobnicate\"; \"blobs help\" lists what there is."},
        {{"--frobnicate"}, "There is no \"blobs --frobnicate\"; \"blobs help\" lists what there is."},
        {{"version"}, "There is no \"blobs version\"; \"blobs help\" lists what there is."},
        {{"list", "--version"}, "There is no option --version for \"blobs list\"."},
        {{"List", "r"}, "There is no \"blobs List\"; \"blobs help\" lists what there is."},
        {{"list"}, "\"blobs list\" needs a recording."},
        {{"show"}, "\"blobs show\" needs a recording."},
        {{"trace"}, "\"blobs trace\" needs a recording."},
        {{"html", "--output", "x"}, "\"blobs html\" needs a recording."},
        {{"show", "r"}, "\"blobs show\" needs the number of a Blob."},
        {{"list", "r", "s"}, "The argument \"s\" is one too many."},
        {{"show", "r", "1", "2"}, "The argument \"2\" is one too many."},
        {{"trace", "r", "s", "--output", "x"}, "The argument \"s\" is one too many."},
        {{"html", "r", "s", "--output", "x"}, "The argument \"s\" is one too many."},
        {{"layouts", "Version", "s"}, "The argument \"s\" is one too many."},
        {{"trace", "r"}, "\"blobs trace\" needs --output and the name of a file."},
        {{"html", "r"}, "\"blobs html\" needs --output and the name of a file."},
        {{"trace", "r", "--output"}, "The option --output needs a value."},
        {{"html", "r", "--output", ""}, "The option --output needs a value."},
        {{"list", "r", "--type"}, "The option --type needs a value."},
        {{"list", "r", "--direction"}, "The option --direction needs a value."},
        {{"list", "r", "--from"}, "The option --from needs a value."},
        {{"list", "r", "--to", ""}, "The option --to needs a value."},
        {{"list", "r", "--output", "x"}, "There is no option --output for \"blobs list\"."},
        {{"show", "r", "1", "--type", "Version"}, "There is no option --type for \"blobs show\"."},
        {{"show", "r", "1", "--force"}, "There is no option --force for \"blobs show\"."},
        {{"trace", "r", "--output", "x", "--whole"}, "There is no option --whole for \"blobs trace\"."},
        {{"html", "r", "-o", "x"}, "There is no option -o for \"blobs html\"."},
        {{"layouts", "--whole"}, "There is no option --whole for \"blobs layouts\"."},
        {{"layouts", "2"}, "There is no type of Blob \"2\"."},
        {{"list", "r", "--type", "Verison"}, "There is no type of Blob \"Verison\"."},
        {{"trace", "r", "--output", "x", "--type", "Version,"}, "There is no type of Blob \"\"."},
        {{"list", "r", "--direction", "up"}, "A direction is to-agent or from-agent, not \"up\"."},
        {{"list", "r", "--from", "soon"}, "\"soon\" isn't a number of seconds."},
        {{"html", "r", "--output", "x", "--to", "1e3"}, "\"1e3\" isn't a number of seconds."},
    };
    for (const auto& [arguments, sentence] : runs)
    {
        ExpectFailure(wrongUsage, sentence, arguments);
        EXPECT_FALSE(Exists("x"));
    }
}

TEST(CommandErrors, ABlobThatThereIsNotIsTold)
{
    const TestFile file("r.jsonl", ReloadRecording().Text());
    ExpectFailure(failure, file.path + " has no Blob 13.", {"show", file.path, "13"});
    ExpectFailure(failure, file.path + " has no Blob 0.", {"show", file.path, "0"});
    for (const char* number : {"x", "1x", "0x1", "1.5", "99999999999999999999"})
    {
        ExpectFailure(wrongUsage, "\"" + std::string(number) + "\" isn't the number of a Blob.",
                      {"show", file.path, number});
    }
}
