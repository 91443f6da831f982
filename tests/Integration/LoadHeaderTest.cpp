#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// Torvane/Load.h: what it says when there is nothing to load, and what it keeps from an Agent without a connection.

#if TORVANE_HOST_HALF

#include "Torvane/Load.h"
#include "tests/Support/Files.h"
#include "tests/Support/TestLibraries.h"
#include "tests/Support/TestThread.h"

#include <string.h>
#include <string>

namespace
{
constexpr uint32_t libraryLoads =
    5000; // more than an Agent's queue holds: a load sends one Blob, and so does its end
constexpr uint32_t messages = 10000;

class LoadHeader : public HostTest
{
protected:
    LoadHeader()
    {
        EXPECT_TRUE(libraries.Write("TvnA.dll"));
    }

    std::wstring LibraryPath()
    {
        wchar_t path[1024] = {};
        GetModuleFileNameW(static_cast<HMODULE>(Library().Module()), path, 1024);
        return path;
    }

    std::wstring ReasonNotToLoad(const std::wstring& path)
    {
        TvnHost other;
        EXPECT_FALSE(TvnHostLoad(&other, path.c_str()));
        EXPECT_EQ(nullptr, other.library);
        EXPECT_FALSE(TvnHostStartDefaultAgent(&other, nullptr, nullptr, nullptr));
        UseEverything(&other);
        TvnHostShutdown(&other);
        return other.reason;
    }

    /// Loads and starts the Agent. The end of the test shuts it down.
    void Start()
    {
        ASSERT_TRUE(TvnHostLoad(&host, LibraryPath().c_str())) << host.reason;
        EXPECT_STREQ(L"", host.reason);
        PrepareStart();
        ASSERT_TRUE(TvnHostStartDefaultAgent(&host, nullptr, nullptr, nullptr));
        EXPECT_FALSE(TvnHostStartDefaultAgent(&host, nullptr, nullptr, nullptr)) << "once";
    }

    /// More than the queue could hold.
    void LoadLibrariesAndLog()
    {
        TvnHostEnableAutomaticHandlingOfDynamicallyLoadedModules(&host, nullptr, nullptr);
        for (uint32_t i = 0; i < libraryLoads; ++i)
        {
            FreeLibrary(LoadLibraryW(libraries.PathOf("TvnA.dll").c_str()));
        }
        for (uint32_t i = 0; i < messages; ++i)
        {
            TvnHostLogMessage(&host, L"a message");
        }
    }

    static void UseEverything(TvnHost* user)
    {
        const wchar_t* paths[] = {L"kernel32.dll"};
        const char* narrowPaths[] = {"kernel32.dll"};
        TvnHostOnConnection(user, nullptr, nullptr);
        TvnHostLogMessage(user, L"message");
        TvnHostLogMessageANSI(user, "message");
        TvnHostSetBoolPreferences(user, 1, true);
        TvnHostSetIntPreferences(user, 1, 2);
        TvnHostSetStringPreferences(user, 1, "value");
        TvnHostSetShortcutPreferences(user, 1, 2, 3);
        TvnHostEnableModule(user, paths[0], ExactlyTheseModules, nullptr, nullptr);
        TvnHostEnableModuleANSI(user, narrowPaths[0], ExactlyTheseModules, nullptr, nullptr);
        TvnHostEnableModules(user, paths, 1, ExactlyTheseModules, nullptr, nullptr);
        TvnHostEnableModulesANSI(user, narrowPaths, 1, ExactlyTheseModules, nullptr, nullptr);
        TvnHostDisableModule(user, paths[0], ExactlyTheseModules, nullptr, nullptr);
        TvnHostDisableModuleANSI(user, narrowPaths[0], ExactlyTheseModules, nullptr, nullptr);
        TvnHostDisableModules(user, paths, 1, ExactlyTheseModules, nullptr, nullptr);
        TvnHostDisableModulesANSI(user, narrowPaths, 1, ExactlyTheseModules, nullptr, nullptr);
        TvnHostEnableAutomaticHandlingOfDynamicallyLoadedModules(user, nullptr, nullptr);
        TvnHostScheduleReload(user);
        EXPECT_FALSE(TvnHostWantsReload(user, SyncBeforeCompile));
        TvnHostReload(user, WaitUntilFinished);
        TvnHostScheduleRestart(user, ThisProcessOnly);
        EXPECT_FALSE(TvnHostWantsRestart(user));
        TvnHostRestart(user, TvnRestartTerminateProcess, 1);
    }

    size_t CountCalls()
    {
        size_t count = 0;
        for (const LogRecord& record : ReadLog())
        {
            count += record.message.rfind("API ", 0) == 0;
        }
        return count;
    }

    TestLibraries libraries;
    TvnHost host;
};
} // namespace

#define LOAD_HEADER(Name) HOST_TEST_OF(LoadHeader, LoadHeader, Name)

LOAD_HEADER(SaysWhyItLoadsNothing)
{
    ExpectNoBridge();
    const std::wstring path = LibraryPath();
    const std::wstring missing = libraries.PathOf("missing.dll");
    EXPECT_EQ(L"the Agent's library, or one that it needs, isn't there: " + missing,
              ReasonNotToLoad(missing));

    const std::wstring text = libraries.PathOf("text.dll");
    ASSERT_TRUE(WriteWholeFile(text, "no image", 8));
    EXPECT_EQ(L"the Agent's library isn't one for this program, which has to be 32-bit: " + text,
              ReasonNotToLoad(text));

    const std::wstring other = libraries.PathOf("TvnA.dll");
    EXPECT_EQ(L"the library isn't an Agent of this version: " + other, ReasonNotToLoad(other));

    std::string bytes = ReadWholeFile(path);
    for (size_t i = 0; i + 6 <= bytes.size(); ++i)
    {
        if (memcmp(&bytes[i], "2.4.0", 6) == 0)
        {
            bytes[i + 4] = '1';
        }
    }
    const std::wstring newer = libraries.PathOf("newer.dll");
    ASSERT_TRUE(WriteWholeFile(newer, bytes.data(), bytes.size()));
    EXPECT_EQ(L"the Agent's library has another version than this program was built for: 2.4.1",
              ReasonNotToLoad(newer));
}

LOAD_HEADER(SearchesInItsOwnFolder)
{
    ExpectNoBridge();
    TvnHost own;
    const bool loaded = TvnHostLoad(&own, nullptr);
    wchar_t program[1024] = {};
    GetModuleFileNameW(nullptr, program, 1024);
    const std::wstring folder(program, wcsrchr(program, L'\\') + 1);
    if (loaded)
    {
        wchar_t path[1024] = {};
        GetModuleFileNameW(own.library, path, 1024);
        EXPECT_EQ(folder + L"TVN_Agent_x86.dll", path);
    }
    else
    {
        EXPECT_EQ(L"the Agent's library, or one that it needs, isn't there: " + folder + L"TVN_Agent_x86.dll",
                  own.reason);
    }
}

LOAD_HEADER(KeepsEverythingFromAnAgentWhoseConnectionHasFailed)
{
    RemoveBridge();
    Start();
    EXPECT_FALSE(TvnHostWaitForConnection(&host, testTimeout));
    EXPECT_EQ(ConnectionFailed, host.status);
    const size_t calls = CountCalls();
    LoadLibrariesAndLog();
    UseEverything(&host);
    EXPECT_EQ(calls + 1, CountCalls()) << "That one is TvnOnConnection.";
}

LOAD_HEADER(KeepsWhatDoesNotWaitFromAnAgentThatIsConnecting)
{
    Start();
    const size_t calls = CountCalls();
    LoadLibrariesAndLog();
    TvnHostScheduleReload(&host);
    TvnHostDisableModule(&host, L"kernel32.dll", ExactlyTheseModules, nullptr, nullptr);
    EXPECT_EQ(calls, CountCalls());
    EXPECT_EQ(TvnHostConnecting, host.status);
    TestThread thread(
        [this] { TvnHostEnableModule(&host, L"kernel32.dll", ExactlyTheseModules, nullptr, nullptr); });
    EXPECT_TRUE(WaitForLog("API TvnEnableModule"));
    Signal("called");
    EXPECT_TRUE(TvnHostWaitForConnection(&host, testTimeout));
    EXPECT_TRUE(WaitForLog("API TvnEnableAutomaticHandlingOfDynamicallyLoadedModules"));
    EXPECT_TRUE(thread.WaitForEnd());
    TvnHostLogMessage(&host, L"the first one");
}

LOAD_HEADER(PassesEverythingToAConnectedAgent)
{
    struct Outcome
    {
        volatile LONG count = 0;
        volatile LONG status = -1;

        static void TVN_CALL Take(void* context, TvnConnectionStatus status)
        {
            Outcome& outcome = *static_cast<Outcome*>(context);
            outcome.status = status;
            InterlockedIncrement(&outcome.count);
        }
    };
    UseDefaultBridge();
    Start();
    Outcome before;
    TvnHostOnConnection(&host, &before, &Outcome::Take);
    EXPECT_TRUE(TvnHostWaitForConnection(&host, testTimeout));
    EXPECT_TRUE(WaitUntil([&] { return before.count != 0; }));
    Outcome after;
    TvnHostOnConnection(&host, &after, &Outcome::Take);
    EXPECT_EQ(1, before.count);
    EXPECT_EQ(1, after.count);
    EXPECT_EQ(ConnectionSucceeded, before.status);
    EXPECT_EQ(ConnectionSucceeded, after.status);
    TvnHostEnableAutomaticHandlingOfDynamicallyLoadedModules(&host, nullptr, nullptr);
    EXPECT_EQ(1u, CountInLog("API TvnEnableAutomaticHandlingOfDynamicallyLoadedModules"));
    const size_t calls = CountCalls();
    TvnHostLogMessageANSI(&host, "message");
    TvnHostSetIntPreferences(&host, 1, 2);
    TvnHostEnableModule(&host, L"kernel32.dll", ExactlyTheseModules, nullptr, nullptr);
    EXPECT_EQ(calls + 4, CountCalls()) << "One of them is the worker's.";
}

LOAD_HEADER(IgnoresAConnectionThatSucceedsDuringTheShutdown)
{
    LeaveAgentRunning(); // the header ends it
    Start();
    TvnHostEnableAutomaticHandlingOfDynamicallyLoadedModules(&host, nullptr, nullptr);
    {
        TestThread thread([this] { TvnHostShutdown(&host); });
        EXPECT_TRUE(WaitForLog("Shutting down agent-bridge communication"));
        Signal("shutting down");
        EXPECT_TRUE(thread.WaitForEnd());
    }
    EXPECT_EQ(1u, CountInLog("Initialization done"));
    const size_t calls = CountCalls();
    UseEverything(&host);
    TvnHostShutdown(&host);
    EXPECT_EQ(calls, CountCalls());
    EXPECT_EQ(0u, CountInLog("API TvnEnableAutomaticHandlingOfDynamicallyLoadedModules"));
    EXPECT_EQ(1u, CountInLog("Shutting down agent-bridge communication"));
}

LOAD_HEADER(IsAnObjectThatShutsTheAgentDown)
{
    UseDefaultBridge();
    PrepareStart();
    LeaveAgentRunning(); // the object ends it
    {
        Torvane::Host owner(LibraryPath().c_str());
        ASSERT_NE(nullptr, owner->library);
        ASSERT_TRUE(TvnHostStartSynchronizedAgent(owner, nullptr, nullptr, nullptr));
        EXPECT_TRUE(TvnHostWaitForConnection(owner, testTimeout));
        EXPECT_EQ(0u, CountInLog("Shutting down agent-bridge communication"));
    }
    EXPECT_EQ(1u, CountInLog("Shutting down agent-bridge communication"));
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, LoadHeader, IgnoresAConnectionThatSucceedsDuringTheShutdown)
{
    ASSERT_TRUE(Await("shutting down"));
    ASSERT_TRUE(link.Connect(testTimeout));
    SendVersion(link);
    EXPECT_TRUE(link.WaitUntilClosed(testTimeout));
}

BRIDGE_SCENARIO_OF(BridgeTest, LoadHeader, KeepsWhatDoesNotWaitFromAnAgentThatIsConnecting)
{
    ASSERT_TRUE(Await("called"));
    ASSERT_TRUE(link.Connect(testTimeout));
    ASSERT_TRUE(link.ExchangeVersion(testTimeout));
    const auto modules = link.WaitFor<EnableModulesBlob>(testTimeout);
    ASSERT_TRUE(modules);
    ASSERT_TRUE(SendDecrementLatch(link, modules->latch));
    const auto message = link.WaitFor<LogBlob>(testTimeout, BlobType::LogWide);
    ASSERT_TRUE(message);
    EXPECT_EQ(L"the first one", message.Utf16String(message->text));
}

#endif
