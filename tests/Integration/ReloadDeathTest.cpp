#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// A Bridge whose process ends in the middle of a reload: after every command and after every answer. Whatever it has
// sent is executed all the same; the host continues each time and shuts down.

namespace
{
/// The Blobs of a reload, in their order in both directions together. A test for each, named by it.
constexpr const char* steps[] = {
    "RequestReload",         "Reload",         "LoadPatchWindows",
    "PatchLoaded",           "ReadMemory",     "ReadMemoryResult",
    "WriteMemory",           "CopyMemory",     "SetPageProtectionWindows",
    "FlushInstructionCache", "CallEntryPoint", "CallHooks",
    "FinishAfterHotReload",
};

/// What a test is called before the step's name.
constexpr char prefix[] = "HappensAfter";

template<typename Base, typename Test>
int RegisterForEachStep(int line)
{
    int count = 0;
    for (const char* step : steps)
    {
        testing::RegisterTest("ReloadDeath", (std::string(prefix) + step).c_str(), nullptr, nullptr, __FILE__,
                              line, []() -> Base* { return new Test; });
        ++count;
    }
    return count;
}

/// Whether the Bridge lives long enough for this one.
bool ComesToPass(const std::string& step)
{
    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    for (const char* passed : steps)
    {
        if (step == passed)
        {
            return true;
        }
        if (prefix + std::string(passed) == name)
        {
            return false;
        }
    }
    return false;
}
} // namespace

#if TORVANE_HOST_HALF

#include "tests/Support/Modules.h"

namespace
{
/// What a reload works on.
struct Subject
{
    uint32_t read = 7;
    uint32_t written = 0;
    uint32_t copied = 0;
    uint32_t hookCalls = 0;
    uint8_t* page = nullptr; ///< entry point, 16 bytes after its start
    uint8_t* protectedPage = nullptr;
};

Subject subject;

void CountHookCall(const void*)
{
    ++subject.hookCalls;
}

class ReloadDeathTest : public LinkTest
{
protected:
    void PublishSubject()
    {
        subject.page = static_cast<uint8_t*>(
            VirtualAlloc(nullptr, 0x1000, MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE));
        subject.protectedPage =
            static_cast<uint8_t*>(VirtualAlloc(nullptr, 0x1000, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        static void (*hooks[])(const void*) = {&CountHookCall};
        PublishText("patch", ImagePath(L"PlainPatch"));
        Publish("read", &subject.read);
        Publish("written", &subject.written);
        Publish("copied", &subject.copied);
        Publish("page", subject.page);
        Publish("protected page", subject.protectedPage);
        Publish("hooks", hooks);
    }

    void ExpectEndOfTheLink()
    {
        ExpectStatus(ConnectionSucceeded);
        ExpectReceiverEnd(8);
        ExpectHostWorksAndShutsDown();
        ExpectSenderEnd(7);
        ExpectErrorLines({});
        ExpectStatus(ConnectionSucceeded);
    }

    static bool IsPatchThere()
    {
        return GetModuleHandleW(ImagePath(L"PlainPatch").c_str()) != nullptr;
    }
};

class DyingHost : public ReloadDeathTest
{
    void HostHalf() override
    {
        PublishSubject();
        StartWatchedAgent();
        ExpectEndOfTheLink();
        EXPECT_EQ(ComesToPass("RequestReload"), CountInLog("API TvnReload") == 1);
        EXPECT_EQ(ComesToPass("LoadPatchWindows"), IsPatchThere());
        EXPECT_EQ(ComesToPass("WriteMemory") ? 1u : 0u, subject.written);
        EXPECT_EQ(ComesToPass("CopyMemory") ? 7u : 0u, subject.copied);
        EXPECT_EQ(DWORD(ComesToPass("SetPageProtectionWindows") ? PAGE_READONLY : PAGE_READWRITE),
                  QueryMemory(subject.protectedPage).Protect);
        EXPECT_EQ(ComesToPass("CallEntryPoint") ? 0xCC : 0, subject.page[0x10]);
        EXPECT_EQ(ComesToPass("CallHooks") ? 1u : 0u, subject.hookCalls);
        for (const char* step : steps)
        {
            const bool isACommand = std::string(step) != "Reload" && std::string(step) != "PatchLoaded" &&
                                    std::string(step) != "ReadMemoryResult";
            const bool isLogged = isACommand && std::string(step) != "RequestReload" && ComesToPass(step);
            EXPECT_EQ(isLogged ? 1u : 0u, CountInLog(std::string("Processing Blob::") + step)) << step;
        }
    }
};

[[maybe_unused]] const int registered = RegisterForEachStep<HostTest, DyingHost>(__LINE__);
} // namespace

#define RELOAD_DEATH(Name) HOST_TEST_OF(ReloadDeathTest, ReloadDeath, Name)

RELOAD_DEATH(LeavesARequestThatTheHostCanStillAccept)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    ExpectReceiverEnd(8);
    EXPECT_TRUE(WaitForBridge());
    EXPECT_TRUE(agent.TvnWantsReload(SyncBeforeCompile));
    agent.TvnReload(NoWait);
    ExpectSenderEnd(7);
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeCompile));
}

RELOAD_DEATH(LeavesAPatchToBeHandedOver)
{
    PublishSubject();
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    ASSERT_TRUE(Await("requested"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    Signal("accepted");
    EXPECT_TRUE(WaitForBridge());
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeLoad); }));
    EXPECT_FALSE(IsPatchThere());
    EXPECT_EQ(0u, CountInLog("Thread 'Torvane receiver' exited with result 8")) << "It waits for the host.";
    agent.TvnReload(NoWait);
    ExpectReceiverEnd(8);
    EXPECT_TRUE(IsPatchThere());
    ExpectSenderEnd(7);
}

#else

namespace
{
class DyingBridge : public ConnectedBridgeTest
{
    void TestBody() override
    {
        Command("RequestReload", [this] { return SendRequestReload(link); });
        Answer("Reload", BlobType::Reload);
        Command("LoadPatchWindows", [this] {
            PatchCommand patch;
            patch.path = AwaitText("patch");
            return SendLoadPatch(link, patch);
        });
        Answer("PatchLoaded", BlobType::PatchLoaded);
        Command("ReadMemory",
                [this] { return SendReadMemory(link, sizeof(uint32_t), {AwaitNumber("read")}, 1); });
        Answer("ReadMemoryResult", BlobType::ReadMemoryResult);
        Command("WriteMemory", [this] {
            return SendWriteMemory(link, {AwaitNumber("written")}, {1, 0, 0, 0});
        });
        Command("CopyMemory", [this] {
            return SendCopyMemory(link, sizeof(uint32_t), {AwaitNumber("read")}, {AwaitNumber("copied")});
        });
        Command("SetPageProtectionWindows", [this] {
            return SendSetPageProtection(link, {{AwaitNumber("protected page"), 0x1000, PAGE_READONLY, 0}});
        });
        Command("FlushInstructionCache", [this] { return SendFlushInstructionCache(link); });
        Command("CallEntryPoint", [this] {
            const EntryPointCode returnTrue = {
                {0xB0, 0x01, 0xC2, 0x0C, 0x00, 0x90}}; // and take the arguments away
            const EntryPointCode breakpoints = {{0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC}};
            return SendCallEntryPoint(link, AwaitNumber("page"), 0x10, returnTrue, breakpoints);
        });
        Command("CallHooks", [this] {
            const AddressSlot hooks = AwaitNumber("hooks");
            return SendCallHooks(link, 10, hooks, hooks + sizeof(uint32_t));
        });
        Command("FinishAfterHotReload", [this] { return SendFinishAfterHotReload(link); });
        Die();
    }

    template<typename Send>
    void Command(const char* step, Send send)
    {
        if (ComesToPass(step))
        {
            EXPECT_TRUE(send()) << step;
        }
    }

    void Answer(const char* step, BlobType type)
    {
        if (ComesToPass(step))
        {
            EXPECT_TRUE(link.WaitForOneOf({type}, testTimeout)) << step;
        }
    }
};

[[maybe_unused]] const int registered = RegisterForEachStep<BridgeTest, DyingBridge>(__LINE__);
} // namespace

BRIDGE_SCENARIO(ReloadDeath, LeavesARequestThatTheHostCanStillAccept)
{
    EXPECT_TRUE(SendRequestReload(link));
    Die();
}

BRIDGE_SCENARIO(ReloadDeath, LeavesAPatchToBeHandedOver)
{
    EXPECT_TRUE(SendRequestReload(link));
    EXPECT_TRUE(Fence());
    Signal("requested");
    EXPECT_TRUE(Await("accepted"));
    PatchCommand patch;
    patch.path = AwaitText("patch");
    EXPECT_TRUE(SendLoadPatch(link, patch));
    Die();
}

#endif
