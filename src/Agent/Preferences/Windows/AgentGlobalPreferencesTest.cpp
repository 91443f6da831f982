#include "Agent/Preferences/Windows/AgentGlobalPreferences.h"

#include "tests/Support/RecordedLog.h"
#include "tests/Support/TemporaryFolder.h"
#include "tests/Support/TestMemorySystem.h"

#include <gtest/gtest.h>

namespace Torvane::Testing
{
namespace
{
constexpr const wchar_t* defaultFile = L"global_preferences_default.json";
constexpr const wchar_t* usersFile = L"global_preferences.json";
constexpr const wchar_t* overridingFile = L"global_preferences_override.json";

class AgentGlobalPreferencesTest : public testing::Test
{
protected:
    /// The time-out that the folder's files give.
    int32_t LoadAll()
    {
        FixedWideString brokerFolder = {};
        brokerFolder.Assign(folder.GetPath().c_str());
        IntPreference timeout = MakeGlobalPreferences();
        LoadAllGlobalPreferences(timeout, brokerFolder);
        return timeout.value;
    }

    void MakeFile(const wchar_t* name, const std::string& timeout)
    {
        folder.MakeFile(name, "{\"Network\":{\"timeout\":" + timeout + "}}");
    }

    std::string PathOf(const wchar_t* name) const
    {
        const std::wstring path = folder / name;
        return std::string(path.begin(), path.end());
    }

    TemporaryFolder folder;
    TestMemorySystem memory;
    RecordedLog log;
};

TEST_F(AgentGlobalPreferencesTest, AreTwoSecondsByDefault)
{
    const IntPreference timeout = MakeGlobalPreferences();
    EXPECT_STREQ(timeout.key, "timeout");
    EXPECT_EQ(timeout.value, 2000);
    EXPECT_EQ(LoadAll(), 2000);
    const std::vector<std::string> expected = {
        "DBG Trying to load global preferences from " + PathOf(defaultFile),
        "DBG Trying to load global preferences from " + PathOf(usersFile),
        "DBG Trying to load global preferences from " + PathOf(overridingFile)};
    EXPECT_EQ(log.GetLines(), expected);
}

TEST_F(AgentGlobalPreferencesTest, LogEachFileWithItsOwnMessage)
{
    MakeFile(defaultFile, "1");
    MakeFile(usersFile, "2");
    MakeFile(overridingFile, "3");
    EXPECT_EQ(LoadAll(), 3);
    const std::vector<std::string> expected = {
        "DBG Trying to load global preferences from " + PathOf(defaultFile),
        "DBG Loaded default global preferences from " + PathOf(defaultFile),
        "DBG Trying to load global preferences from " + PathOf(usersFile),
        "DBG Loaded global preferences from " + PathOf(usersFile),
        "DBG Trying to load global preferences from " + PathOf(overridingFile),
        "DBG Loaded overridden global preferences from " + PathOf(overridingFile)};
    EXPECT_EQ(log.GetLines(), expected);
}

/// Each of the eight sets of files.
TEST_F(AgentGlobalPreferencesTest, TakeTheValueOfTheFileOfHighestPrecedence)
{
    for (int set = 0; set < 8; ++set)
    {
        int32_t expected = 2000;
        const wchar_t* const names[] = {defaultFile, usersFile, overridingFile};
        for (int i = 0; i < 3; ++i)
        {
            DeleteFileW((folder / names[i]).c_str());
            if ((set & 1 << i) != 0)
            {
                expected = 10 + i;
                MakeFile(names[i], std::to_string(expected));
            }
        }
        EXPECT_EQ(LoadAll(), expected) << "set " << set;
    }
}

TEST_F(AgentGlobalPreferencesTest, AreLeftByFilesWithoutAUsableValue)
{
    MakeFile(defaultFile, "1500");
    MakeFile(usersFile, "\"9\"");
    folder.MakeFile(overridingFile, R"({"Network":[],"Other":{"timeout":9}})");
    EXPECT_EQ(LoadAll(), 1500);
    EXPECT_EQ(log.Count("DBG Loaded overridden global preferences from " + PathOf(overridingFile)), 1u);
}

TEST_F(AgentGlobalPreferencesTest, AreLeftByAnEmptyFileWithoutAnErrorLine)
{
    MakeFile(defaultFile, "1500");
    folder.MakeFile(overridingFile);
    EXPECT_EQ(LoadAll(), 1500);
    EXPECT_EQ(log.Count("DBG Loaded overridden global preferences from " + PathOf(overridingFile)), 0u);
    for (const std::string& line : log.GetLines())
    {
        EXPECT_EQ(line.substr(0, 4), "DBG ");
    }
}

TEST_F(AgentGlobalPreferencesTest, CanBeNegativeAndLoseTheirFraction)
{
    MakeFile(defaultFile, "1500.9");
    EXPECT_EQ(LoadAll(), 1500);
    MakeFile(usersFile, "-1");
    EXPECT_EQ(LoadAll(), -1);
}
} // namespace
} // namespace Torvane::Testing
