#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The time-out of the connection, from the preference files of the Broker's folder.

#if TORVANE_HOST_HALF

#include "tests/Support/FaultCatcher.h"
#include "tests/Support/Integration/PreferenceTest.h"
#include "tests/Support/Integration/StartupGate.h"

#define GLOBAL_PREFERENCES(Name) HOST_TEST_OF(PreferenceTest, GlobalPreferences, Name)

GLOBAL_PREFERENCES(AreSearchedInTheBrokersFolderTwoFoldersAboveTheLibrary)
{
    PrepareFolders();
    UseScenario("GlobalPreferences.DoesNotConnect");
    StartDefaultAgent();
    EXPECT_EQ(ConnectionFailed, WaitForConnection());
    const std::string start = "Trying to load global preferences from " + Utf8(LibraryFolder()) +
                              "\\../../Broker\\global_preferences";
    ExpectLogOrder({"Spawned bridge process", start + "_default.json", start + ".json",
                    start + "_override.json", "Waiting for bridge to connect to pipes, timeout 2000ms"});
    Signal("over");
}

GLOBAL_PREFERENCES(OfTheOverridingFileBeatTheOthers)
{
    PrepareFolders();
    const std::wstring broker = MakeFolder(L"Broker");
    MakeGlobalFile(broker, L"default", "30001");
    MakeGlobalFile(broker, L"", "30002");
    MakeGlobalFile(broker, L"override", "30003");
    ExpectConnectionWithTimeout(30003);
    const std::string start = Spelled(broker) + "\\global_preferences";
    ExpectLogOrder({"Trying to load global preferences from " + start + "_default.json",
                    "Loaded default global preferences from " + start + "_default.json",
                    "Trying to load global preferences from " + start + ".json",
                    "Loaded global preferences from " + start + ".json",
                    "Trying to load global preferences from " + start + "_override.json",
                    "Loaded overridden global preferences from " + start + "_override.json",
                    "Waiting for bridge to connect to pipes, timeout 30003ms"});
    ExpectNoErrorsInLog();
}

GLOBAL_PREFERENCES(OfTheUserBeatTheDefaults)
{
    PrepareFolders();
    const std::wstring broker = MakeFolder(L"Broker");
    MakeGlobalFile(broker, L"default", "30001");
    MakeGlobalFile(broker, L"", "30002");
    ExpectConnectionWithTimeout(30002);
    ExpectNoErrorsInLog();
}

GLOBAL_PREFERENCES(WithoutAUsableValueLeaveTheEarlierOne)
{
    PrepareFolders();
    const std::wstring broker = MakeFolder(L"Broker");
    MakeGlobalFile(broker, L"default", "30001");
    MakeGlobalFile(broker, L"", "\"30002\"");
    MakeFile(GlobalFile(broker, L"override"), R"({"Network": [30003], "General": {"timeout": 30003}})");
    ExpectConnectionWithTimeout(30001);
    EXPECT_EQ(1u, CountInLog("Loaded overridden global preferences from " +
                             Spelled(GlobalFile(broker, L"override"))));
    ExpectNoErrorsInLog();
}

GLOBAL_PREFERENCES(LoseTheirFractionAndTakeTheLastOfTwoValues)
{
    PrepareFolders();
    const std::wstring broker = MakeFolder(L"Broker");
    MakeFile(GlobalFile(broker, L""),
             R"({"Network": {"timeout": 1}, "Network": {"timeout": 2, "timeout": 30004.9}})");
    ExpectConnectionWithTimeout(30004);
}

GLOBAL_PREFERENCES(InAnEmptyFileAreNone)
{
    PrepareFolders();
    const std::wstring broker = MakeFolder(L"Broker");
    MakeGlobalFile(broker, L"default", "30001");
    const std::wstring empty = MakeFile(GlobalFile(broker, L""), "");
    ExpectConnectionWithTimeout(30001);
    EXPECT_EQ(0u, CountInLog("Loaded global preferences from " + Spelled(empty)));
    ExpectNoErrorsInLog();
}

GLOBAL_PREFERENCES(InAMalformedFileAreOneErrorLineAndNone)
{
    PrepareFolders();
    const std::wstring broker = MakeFolder(L"Broker");
    MakeGlobalFile(broker, L"default", "30001");
    const std::wstring malformed =
        MakeFile(GlobalFile(broker, L"override"), R"({"Network": {"timeout": 30003},})");
    ExpectConnectionWithTimeout(30001);
    size_t errors = 0;
    for (const LogRecord& record : WithoutHeapSearch(ReadLog()))
    {
        if (record.tag == "ERR")
        {
            ++errors;
            EXPECT_EQ("Failed to parse malformed JSON from " + Spelled(malformed), record.message);
        }
    }
    EXPECT_EQ(1u, errors);
    EXPECT_EQ(0u, CountInLog("Loaded overridden global preferences from " + Spelled(malformed)));
}

GLOBAL_PREFERENCES(OfLessThanZeroFailTheConnectionAtOnce)
{
    PrepareFolders();
    MakeGlobalFile(MakeFolder(L"Broker"), L"override", "-1");
    UseScenario("GlobalPreferences.DoesNotConnect");
    StartDefaultAgent();
    EXPECT_EQ(ConnectionFailed, WaitForConnection());
    ExpectLogOrder({"Waiting for bridge to connect to pipes, timeout 0ms", "Failed to wait for sender pipe",
                    "Failed to wait for receiver pipe"});
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 11"));
    Signal("over");
}

namespace
{
HANDLE OpenPipe(const std::wstring& prefix)
{
    const HANDLE pipe = CreateFileW((prefix + std::to_wstring(GetCurrentProcessId())).c_str(),
                                    GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(INVALID_HANDLE_VALUE, pipe);
    return pipe;
}
} // namespace

GLOBAL_PREFERENCES(OfLessThanZeroAreEnoughForAClientThatIsThereAlready)
{
    PrepareFolders();
    MakeGlobalFile(MakeFolder(L"Broker"), L"override", "-1");
    UseScenario("GlobalPreferences.DoesNotConnect");
    StartupGate gate;
    StartDefaultAgent();
    const HANDLE agentPipe = OpenPipe(agentPipePrefix);
    const HANDLE bridgePipe = OpenPipe(bridgePipePrefix);
    gate.Open();
    ExpectTimeout(0);
    EXPECT_TRUE(WaitForLog("Pipes connected"));
    ExpectNoErrorsInLog();
    Signal("over");
    CloseHandle(agentPipe);
    CloseHandle(bridgePipe);
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 8"));
}

// There is no test for a root of another type; the thread doesn't survive it.
GLOBAL_PREFERENCES(WhoseRootIsNoObjectAreReadThroughANullPointer)
{
    PrepareFolders();
    const std::wstring broker = MakeFolder(L"Broker");
    const std::wstring file = MakeFile(GlobalFile(broker, L""), R"([{"Network": {"timeout": 30002}}])");
    UseScenario("GlobalPreferences.DoesNotConnect");
    const FaultCatcher catcher(nullptr, 4096, FaultCatcher::KeepThread);
    StartDefaultAgent();
    EXPECT_TRUE(WaitUntil([&] { return catcher.Caught().count != 0; }));
    EXPECT_EQ(nullptr, catcher.Caught().address);
    EXPECT_FALSE(catcher.Caught().write);
    EXPECT_EQ("Trying to load global preferences from " + Spelled(file), ReadLog().back().message);
    Signal("over");
    LeaveAgentRunning();
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, GlobalPreferences, DoesNotConnect)
{
    EXPECT_TRUE(Await("over"));
}

#endif
