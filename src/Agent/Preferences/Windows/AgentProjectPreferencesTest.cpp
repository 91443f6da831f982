#include "Agent/Preferences/Windows/AgentProjectPreferences.h"

#include "Shared/Filesystem/Windows/Filesystem.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TemporaryFile.h"
#include "tests/Support/TemporaryFolder.h"
#include "tests/Support/TestMemorySystem.h"

#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>

namespace Torvane::Testing
{
namespace
{
std::string Narrow(const std::wstring& text)
{
    return std::string(text.begin(), text.end());
}

/// A record as it is in a Blob, followed by room for one string.
struct TestRecord
{
    ProjectPreferencesRecord record;
    wchar_t text[512];

    void Refer(RelativeOffset ProjectPreferencesRecord::*field, const std::wstring& value)
    {
        wcscpy(text, value.c_str());
        RelativeOffset& offset = record.*field;
        offset.value =
            static_cast<uint32_t>(reinterpret_cast<uint8_t*>(text) - reinterpret_cast<uint8_t*>(&offset));
    }
};

class AgentProjectPreferencesTest : public testing::Test
{
protected:
    AgentProjectPreferencesTest()
        : directory(MakeProjectPreferences())
    {
        library.Assign(L"C:\\Host\\Agent");
    }

    void ReadFromFile(const std::wstring& path)
    {
        TestRecord record = {};
        record.record.fromFile = 1;
        record.Refer(&ProjectPreferencesRecord::projectPreferencesFile, path);
        ReadProjectPreferences(directory, record.record);
    }

    void Set(const std::string& value)
    {
        AssignText(directory, value.c_str(), static_cast<uint32_t>(value.size()));
    }

    std::wstring MakeFolderOf(const std::string& value)
    {
        Set(value);
        return MakeBrokerFolder(directory, library).text;
    }

    TemporaryFolder folder;

private:
    TestMemorySystem memory;

protected:
    RecordedLog log;
    StringPreference directory;
    FixedWideString library = {};
};

TEST_F(AgentProjectPreferencesTest, HaveADefaultOfThirteenBytes)
{
    EXPECT_STREQ(directory.key, "directoryToBroker");
    EXPECT_STREQ(directory.GetText(), "../../Broker");
    EXPECT_EQ(directory.value.Get().size, 13u);
}

TEST_F(AgentProjectPreferencesTest, KeepTheDefaultIfTheHostGivesNone)
{
    TestRecord record = {};
    record.Refer(&ProjectPreferencesRecord::directoryToBroker, L"C:\\Broker");
    ReadProjectPreferences(directory, record.record);
    EXPECT_STREQ(directory.GetText(), "../../Broker");
    EXPECT_TRUE(log.GetLines().empty());
}

TEST_F(AgentProjectPreferencesTest, ComeFromTheHostsRecord)
{
    TestRecord record = {};
    record.record.fromRecord = 1;
    record.Refer(&ProjectPreferencesRecord::directoryToBroker, L"C:\\Tools\\Broker");
    ReadProjectPreferences(directory, record.record);
    EXPECT_STREQ(directory.GetText(), "C:\\Tools\\Broker");
    EXPECT_EQ(directory.value.Get().size, 16u);
    EXPECT_EQ(log.GetLines(), std::vector<std::string>{"DBG Copying project preferences from blob"});
}

TEST_F(AgentProjectPreferencesTest, ComeFromAFile)
{
    const std::wstring path = folder.MakeFile(
        L"project.json",
        R"({"Other":{"x":[1]},"General":{"directoryToBroker":"..\\Tools","y":{}},"Network":2})");
    ReadFromFile(path);
    EXPECT_STREQ(directory.GetText(), "..\\Tools");
    EXPECT_EQ(directory.value.Get().size, 9u);
    const std::vector<std::string> expected = {"DBG Trying to load project preferences from " + Narrow(path),
                                               "SCS Loaded project-specific preferences from file " +
                                                   Narrow(path)};
    EXPECT_EQ(log.GetLines(), expected);
}

TEST_F(AgentProjectPreferencesTest, PreferTheFileToTheRecord)
{
    const std::wstring path =
        folder.MakeFile(L"project.json", R"({"General":{"directoryToBroker":"of the file"}})");
    TestRecord record = {};
    record.record.fromFile = 1;
    record.record.fromRecord = 1;
    record.Refer(&ProjectPreferencesRecord::projectPreferencesFile, path);
    ReadProjectPreferences(directory, record.record);
    EXPECT_STREQ(directory.GetText(), "of the file");
}

TEST_F(AgentProjectPreferencesTest, KeepTheDefaultIfTheFileDoesNotHoldThem)
{
    const std::wstring path = folder.MakeFile(L"project.json", R"({"General":[1],"directoryToBroker":"x"})");
    ReadFromFile(path);
    EXPECT_STREQ(directory.GetText(), "../../Broker");
    EXPECT_EQ(log.Count("SCS Loaded project-specific preferences from file " + Narrow(path)), 1u);
}

TEST_F(AgentProjectPreferencesTest, KeepTheDefaultAndTellOfAFileThatIsNotThere)
{
    const std::wstring path = folder / L"none.json";
    ReadFromFile(path);
    EXPECT_STREQ(directory.GetText(), "../../Broker");
    const std::vector<std::string> expected = {"DBG Trying to load project preferences from " + Narrow(path),
                                               "ERR Could not load project-specific preferences from file " +
                                                   Narrow(path)};
    EXPECT_EQ(log.GetLines(), expected);
}

TEST_F(AgentProjectPreferencesTest, KeepTheDefaultAndTellOfAMalformedFile)
{
    const std::wstring path = MakePersistentFile(R"({"General":{"directoryToBroker":"x"})");
    ReadFromFile(path);
    EXPECT_STREQ(directory.GetText(), "../../Broker");
    const std::vector<std::string> expected = {"DBG Trying to load project preferences from " + Narrow(path),
                                               "ERR Failed to parse malformed JSON from " + Narrow(path),
                                               "ERR Could not load project-specific preferences from file " +
                                                   Narrow(path)};
    EXPECT_EQ(log.GetLines(), expected);
}

TEST_F(AgentProjectPreferencesTest, AreRelativeToTheLibraryWithoutAColonAfterTheFirstCharacter)
{
    // None of these folders is there, so that none is normalized.
    EXPECT_EQ(MakeFolderOf("../../Broker"), L"C:\\Host\\Agent\\../../Broker");
    EXPECT_EQ(MakeFolderOf("No Broker"), L"C:\\Host\\Agent\\No Broker");
    EXPECT_EQ(MakeFolderOf("x"), L"C:\\Host\\Agent\\x");
    EXPECT_EQ(MakeFolderOf("\\\\server\\No Broker"), L"C:\\Host\\Agent\\\\\\server\\No Broker");
}

TEST_F(AgentProjectPreferencesTest, AreAbsoluteWithAColonAfterTheFirstCharacterOrEmpty)
{
    EXPECT_EQ(MakeFolderOf("Q:\\No Broker"), L"Q:\\No Broker");
    EXPECT_EQ(MakeFolderOf("Q:No Broker"), L"Q:No Broker");
    EXPECT_EQ(MakeFolderOf("Q:"), L"Q:");
    EXPECT_EQ(MakeFolderOf(""), L"");
}

TEST_F(AgentProjectPreferencesTest, NameAFolderThatIsThereAsTheOSSpellsIt)
{
    folder.MakeFolder(L"Broker");
    folder.MakeFolder(L"Agents");
    const std::wstring broker = NormalizePath((folder / L"Broker").c_str()).text;
    library.Assign(folder.MakeFolder(L"Agents\\x86").c_str());
    EXPECT_EQ(MakeBrokerFolder(directory, library).text, broker);
    EXPECT_EQ(MakeFolderOf(Narrow(folder / L"Agents\\..\\Broker")), broker);
    EXPECT_EQ(MakeFolderOf("..\\..\\BROKER\\"), broker);
}

TEST_F(AgentProjectPreferencesTest, AreCutIfTheyAreTooLong)
{
    const std::string name(3000, 'n');
    EXPECT_EQ(MakeFolderOf("Q:" + name), L"Q:" + std::wstring(1021, L'n'));
    const std::wstring relative = MakeFolderOf(name);
    EXPECT_EQ(relative, L"C:\\Host\\Agent\\" + std::wstring(1023 - 14, L'n'));
}
} // namespace
} // namespace Torvane::Testing
