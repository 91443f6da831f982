#include "tests/Support/ByteImage.h"
#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// Host calls that queue one Blob, byte for byte.

#if TORVANE_HOST_HALF

HOST_TEST(HostCalls, SendLogMessages)
{
    TvnDefaultAgent& agent = StartDefaultAgent();
    agent.TvnLogMessage(L"wide \u00E4\u20AC");
    agent.TvnLogMessageANSI("narrow");
    agent.TvnLogMessage(L"");
    agent.TvnLogMessageANSI("");
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    EXPECT_EQ(2u, CountInLog("API TvnLogMessage"));
    EXPECT_EQ(2u, CountInLog("API TvnLogMessageANSI"));
    EXPECT_EQ(0u, CountInLog("narrow")) << "The message goes to the Bridge alone.";
}

HOST_TEST(HostCalls, SendPreferences)
{
    TvnDefaultAgent& agent = StartDefaultAgent();
    agent.TvnSetBoolPreferences(0xFFFFFFFF, true);
    agent.TvnSetBoolPreferences(1, false);
    agent.TvnSetIntPreferences(2, -3);
    agent.TvnSetStringPreferences(4, "five");
    agent.TvnSetStringPreferences(6, "");
    agent.TvnSetShortcutPreferences(7, 0x80000008, 9);
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    EXPECT_EQ(2u, CountInLog("API TvnSetBoolPreferences"));
    EXPECT_EQ(1u, CountInLog("API TvnSetIntPreferences"));
    EXPECT_EQ(2u, CountInLog("API TvnSetStringPreferences"));
    EXPECT_EQ(1u, CountInLog("API TvnSetShortcutPreferences"));
}

HOST_TEST(HostCalls, SendSchedulesOfReloadsAndRestarts)
{
    TvnDefaultAgent& agent = StartDefaultAgent();
    agent.TvnScheduleReload();
    agent.TvnScheduleRestart(ThisProcessOnly);
    agent.TvnScheduleReload();
    agent.TvnScheduleRestart(AllProcesses);
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    ExpectLogOrder({"API TvnScheduleReload", "API TvnScheduleRestart", "API TvnScheduleReload",
                    "API TvnScheduleRestart"});
    EXPECT_EQ(2u, CountInLog("API TvnScheduleReload"));
    EXPECT_EQ(2u, CountInLog("API TvnScheduleRestart"));
}

HOST_TEST(HostCalls, KeepTheirOrderAmongOneAnotherAndAfterTheHandshake)
{
    TvnDefaultAgent& agent = StartDefaultAgent();
    constexpr int count = 2000;
    for (int i = 0; i < count; ++i)
    {
        agent.TvnSetIntPreferences(1, i);
    }
    Publish("count", uint64_t(count));
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
}

HOST_TEST(HostCalls, FillTheTableAndLeaveTheHostsWordAlone)
{
    ExpectNoBridge();
    const AgentLibrary& library = Library();
    SetEnvironmentVariableA("TORVANE_BRIDGE_SCENARIO", "DefaultBridge");
    static TvnSynchronizedAgent agent;
    agent.hostWord = &agent;
    library.TvnStartupSynchronizedAgent(&agent, nullptr, nullptr, nullptr);
    MarkStarted();
    EXPECT_EQ(&agent, agent.hostWord);
    EXPECT_EQ(library.TvnOnConnection, agent.TvnOnConnection);
    EXPECT_EQ(library.TvnLogMessageANSI, agent.TvnLogMessageANSI);
    EXPECT_EQ(library.TvnLogMessage, agent.TvnLogMessage);
    EXPECT_EQ(library.TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI,
              agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI);
    EXPECT_EQ(library.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules,
              agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules);
    EXPECT_EQ(library.TvnEnableModuleANSI, agent.TvnEnableModuleANSI);
    EXPECT_EQ(library.TvnEnableModule, agent.TvnEnableModule);
    EXPECT_EQ(library.TvnEnableModulesANSI, agent.TvnEnableModulesANSI);
    EXPECT_EQ(library.TvnEnableModules, agent.TvnEnableModules);
    EXPECT_EQ(library.TvnDisableModuleANSI, agent.TvnDisableModuleANSI);
    EXPECT_EQ(library.TvnDisableModule, agent.TvnDisableModule);
    EXPECT_EQ(library.TvnDisableModulesANSI, agent.TvnDisableModulesANSI);
    EXPECT_EQ(library.TvnDisableModules, agent.TvnDisableModules);
    EXPECT_EQ(library.TvnWantsReload, agent.TvnWantsReload);
    EXPECT_EQ(library.TvnScheduleReload, agent.TvnScheduleReload);
    EXPECT_EQ(library.TvnReload, agent.TvnReload);
    EXPECT_EQ(library.TvnWantsRestart, agent.TvnWantsRestart);
    EXPECT_EQ(library.TvnScheduleRestart, agent.TvnScheduleRestart);
    EXPECT_EQ(library.TvnRestart, agent.TvnRestart);
    EXPECT_EQ(library.TvnSetBoolPreferences, agent.TvnSetBoolPreferences);
    EXPECT_EQ(library.TvnSetIntPreferences, agent.TvnSetIntPreferences);
    EXPECT_EQ(library.TvnSetStringPreferences, agent.TvnSetStringPreferences);
    EXPECT_EQ(library.TvnSetShortcutPreferences, agent.TvnSetShortcutPreferences);
    static_assert(sizeof(TvnSynchronizedAgent) == 24 * sizeof(void*));
    static_assert(sizeof(TvnDefaultAgent) == 20 * sizeof(void*));
}

HOST_TEST(HostCalls, CheckTheVersionByteForByte)
{
    ExpectNoBridge();
    const AgentLibrary& library = Library();
    EXPECT_STREQ("2.4.0", library.TvnGetVersion());
    EXPECT_TRUE(library.TvnCheckVersion("2.4.0"));
    EXPECT_FALSE(library.TvnCheckVersion("2.4.0 "));
    EXPECT_FALSE(library.TvnCheckVersion("2.4"));
    EXPECT_FALSE(library.TvnCheckVersion("2.4.1"));
    EXPECT_FALSE(library.TvnCheckVersion(""));
    EXPECT_TRUE(ReadLog().empty());
}

#else

BRIDGE_SCENARIO(HostCalls, SendLogMessages)
{
    const std::vector<uint8_t> expected[] = {
        ByteImage(8).U32(0, 2).Text(4, std::wstring(L"wide \u00E4\u20AC")).Blob(11),
        ByteImage(8).U32(0, 2).Text(4, std::string("narrow")).Blob(10),
        ByteImage(8).U32(0, 2).Text(4, std::wstring()).Blob(11),
        ByteImage(8).U32(0, 2).Text(4, std::string()).Blob(10),
    };
    for (const std::vector<uint8_t>& blob : expected)
    {
        EXPECT_EQ(blob, Receive().Bytes());
    }
}

BRIDGE_SCENARIO(HostCalls, SendPreferences)
{
    const std::vector<uint8_t> expected[] = {
        ByteImage(8).U32(0, 0xFFFFFFFF).U8(4, 1).Blob(69),
        ByteImage(8).U32(0, 1).Blob(69),
        ByteImage(8).U32(0, 2).U32(4, 0xFFFFFFFD).Blob(70),
        ByteImage(8).U32(0, 4).Text(4, std::string("five")).Blob(71),
        ByteImage(8).U32(0, 6).Text(4, std::string()).Blob(71),
        ByteImage(12).U32(0, 7).U32(4, 0x80000008).U32(8, 9).Blob(72),
    };
    for (const std::vector<uint8_t>& blob : expected)
    {
        EXPECT_EQ(blob, Receive().Bytes());
    }
}

BRIDGE_SCENARIO(HostCalls, SendSchedulesOfReloadsAndRestarts)
{
    for (const uint32_t processId : {link.HostProcessId(), 0u})
    {
        const Message message = Receive();
        ASSERT_TRUE(message);
        EXPECT_EQ(BlobType::ScheduleReload, message.Type());
        EXPECT_EQ(4u, message.PayloadSize()) << "nothing is written there";
        EXPECT_EQ(12u, message.Bytes().size());
        EXPECT_EQ(ByteImage(4).U32(0, processId).Blob(static_cast<uint32_t>(BlobType::ScheduleRestart)),
                  Receive().Bytes());
    }
}

BRIDGE_SCENARIO(HostCalls, KeepTheirOrderAmongOneAnotherAndAfterTheHandshake)
{
    const uint64_t count = AwaitNumber("count");
    for (uint64_t i = 0; i < count; ++i)
    {
        const Received<SetIntPreferencesBlob> blob(Receive());
        ASSERT_TRUE(blob);
        ASSERT_EQ(BlobType::SetIntPreferences, blob.Type());
        ASSERT_EQ(i, static_cast<uint64_t>(blob->value));
    }
}

#endif
