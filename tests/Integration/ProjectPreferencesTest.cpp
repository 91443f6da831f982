#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The Broker's folder, from the host's file or record; the time-out of that folder's files shows which was taken.

#if TORVANE_HOST_HALF

#include "tests/Support/FaultCatcher.h"
#include "tests/Support/Integration/PreferenceTest.h"

namespace
{
class ProjectPreferencesTest : public PreferenceTest
{
protected:
    /// The folder of the default and one of another name, each with its time-out.
    void PrepareBrokers()
    {
        PrepareFolders();
        MakeGlobalFile(MakeFolder(L"Broker"), L"", "30001");
        other = MakeFolder(L"Other Broker");
        MakeGlobalFile(other, L"", "30002");
    }

    std::wstring other;
};

/// All texts of a record have to be there.
TvnProjectPreferences MakeRecord(const wchar_t* directoryToBroker)
{
    TvnProjectPreferences record = {};
    record.directoryToBroker = directoryToBroker;
    record.wideText18 = record.wideText1C = record.wideText28 = record.wideText38 = L"";
    record.wideText4C = record.wideText5C = L"";
    record.text08 = record.text0C = record.text20 = record.text2C = record.text3C = "";
    record.text58 = record.text64 = "";
    return record;
}

constexpr uint32_t ofTheDefault = 30001;
constexpr uint32_t ofTheOther = 30002;
} // namespace

#define PROJECT_PREFERENCES(Name) HOST_TEST_OF(ProjectPreferencesTest, ProjectPreferences, Name)

PROJECT_PREFERENCES(ThatTheHostDoesNotGiveAreTheDefault)
{
    PrepareBrokers();
    ExpectConnectionWithTimeout(ofTheDefault);
    EXPECT_EQ(0u, CountInLog("Copying project preferences from blob"));
    ExpectNoErrorsInLog();
}

PROJECT_PREFERENCES(OfAFileNameAnAbsoluteFolder)
{
    PrepareBrokers();
    const std::wstring file = MakeProjectFile(Root() + L"\\project.json", other);
    ExpectConnectionWithTimeout(ofTheOther, file.c_str());
    ExpectLogOrder(
        {"Spawned bridge process", "Trying to load project preferences from " + Spelled(file),
         "Loaded project-specific preferences from file " + Spelled(file),
         "Trying to load global preferences from " + Spelled(other) + "\\global_preferences_default.json",
         "Loaded global preferences from " + Spelled(other) + "\\global_preferences.json"});
    ExpectNoErrorsInLog();
}

PROJECT_PREFERENCES(OfAFileNameAFolderRelativeToTheLibrary)
{
    PrepareBrokers();
    // No folder of that path is there from the current directory.
    SetCurrentDirectoryW(Root().c_str());
    const std::wstring file = MakeProjectFile(Root() + L"\\project.json", L"..\\..\\Other Broker");
    ExpectConnectionWithTimeout(ofTheOther, file.c_str());
    EXPECT_EQ(1u,
              CountInLog("Loaded global preferences from " + Spelled(other) + "\\global_preferences.json"));
}

PROJECT_PREFERENCES(OfABareFileNameLieNextToTheExecutable)
{
    PrepareBrokers();
    const std::wstring name = L"project" + std::to_wstring(GetCurrentProcessId()) + L".json";
    const std::wstring file = MakeProjectFile(ExecutableFolder() + L"\\" + name, other);
    MakeProjectFile(Root() + L"\\" + name, L"C:\\of the current directory");
    SetCurrentDirectoryW(Root().c_str());
    ExpectConnectionWithTimeout(ofTheOther, name.c_str());
    EXPECT_EQ(1u, CountInLog("Loaded project-specific preferences from file " + Spelled(file)));
    EXPECT_TRUE(DeleteFileW(file.c_str()));
}

PROJECT_PREFERENCES(OfAMissingFileAreTheDefaultWithALogLine)
{
    PrepareBrokers();
    const std::wstring file = Root() + L"\\no project.json";
    ExpectConnectionWithTimeout(ofTheDefault, file.c_str());
    ExpectLogOrder({"Trying to load project preferences from " + Utf8(file),
                    "Could not load project-specific preferences from file " + Utf8(file),
                    "Waiting for bridge to connect to pipes, timeout 30001ms"});
    EXPECT_EQ(0u, CountInLog("Failed to parse malformed JSON from " + Utf8(file)));
}

PROJECT_PREFERENCES(OfAMalformedFileAreTheDefaultWithALogLine)
{
    PrepareBrokers();
    const std::wstring file = MakeFile(Root() + L"\\project.json",
                                       R"({"General": {"directoryToBroker": "..\\..\\Other Broker"} x})");
    ExpectConnectionWithTimeout(ofTheDefault, file.c_str());
    ExpectLogOrder({"Trying to load project preferences from " + Spelled(file),
                    "Failed to parse malformed JSON from " + Spelled(file),
                    "Could not load project-specific preferences from file " + Spelled(file),
                    "Waiting for bridge to connect to pipes, timeout 30001ms"});
}

PROJECT_PREFERENCES(OfAFileWithoutThemAreTheDefault)
{
    PrepareBrokers();
    const std::wstring file = MakeFile(
        Root() + L"\\project.json", R"({"General": "..\\..\\Other Broker", "Network": {"timeout": 30003}})");
    ExpectConnectionWithTimeout(ofTheDefault, file.c_str());
    EXPECT_EQ(1u, CountInLog("Loaded project-specific preferences from file " + Spelled(file)));
    ExpectNoErrorsInLog();
}

PROJECT_PREFERENCES(OfARecordNameAnAbsoluteFolder)
{
    PrepareBrokers();
    const TvnProjectPreferences record = MakeRecord(other.c_str());
    ExpectConnectionWithTimeout(ofTheOther, nullptr, &record);
    EXPECT_EQ(1u, CountInLog("Copying project preferences from blob"));
    ExpectNoErrorsInLog();
}

PROJECT_PREFERENCES(OfARecordNameAFolderRelativeToTheLibrary)
{
    PrepareBrokers();
    const TvnProjectPreferences record = MakeRecord(L"../../Other Broker");
    ExpectConnectionWithTimeout(ofTheOther, nullptr, &record);
}

PROJECT_PREFERENCES(OfARecordDoNotCountBesideAFile)
{
    PrepareBrokers();
    const std::wstring file = MakeProjectFile(Root() + L"\\project.json", other);
    const TvnProjectPreferences record = MakeRecord(L"C:\\of the record");
    ExpectConnectionWithTimeout(ofTheOther, file.c_str(), &record);
    EXPECT_EQ(0u, CountInLog("Copying project preferences from blob"));
}

PROJECT_PREFERENCES(WhoseRootIsNoObjectAreReadThroughANullPointer)
{
    PrepareBrokers();
    const std::wstring file = MakeFile(Root() + L"\\project.json", "\"General\"");
    UseScenario("GlobalPreferences.DoesNotConnect");
    const FaultCatcher catcher(nullptr, 4096, FaultCatcher::KeepThread);
    StartDefaultAgent(file.c_str());
    EXPECT_TRUE(WaitUntil([&] { return catcher.Caught().count != 0; }));
    EXPECT_EQ(nullptr, catcher.Caught().address);
    EXPECT_FALSE(catcher.Caught().write);
    EXPECT_EQ("Trying to load project preferences from " + Spelled(file), ReadLog().back().message);
    Signal("over");
    LeaveAgentRunning();
}

#endif
