#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

#include <winternl.h>

// Libraries that are enabled and disabled as the host loads and frees them.

namespace
{
constexpr uint32_t threadCount = 4;
constexpr uint32_t rounds = 10;
} // namespace

#if TORVANE_HOST_HALF

#include "tests/Support/Modules.h"
#include "tests/Support/TestLibraries.h"
#include "tests/Support/TestThread.h"
#include "tests/Support/Utf8.h"

#include <memory>

namespace
{
bool TVN_CALL RefuseAll(void* context, const wchar_t*)
{
    InterlockedIncrement(static_cast<volatile LONG*>(context));
    return false;
}

bool TVN_CALL KeepA(void* context, const char* path)
{
    InterlockedIncrement(static_cast<volatile LONG*>(context));
    return strstr(path, "TvnA.dll") != nullptr;
}

/// Reports a failure, but leaves nothing registered.
LONG NTAPI UnregisterAndFail(void* cookie)
{
    using Unregister = LONG(NTAPI*)(void* cookie);
    FindExport<Unregister>(GetModuleHandleW(L"ntdll.dll"), "LdrUnregisterDllNotification")(cookie);
    return static_cast<LONG>(0xC0000001);
}

FARPROC WINAPI FindFailingUnregister(HMODULE module, LPCSTR name)
{
    return strcmp(name, "LdrUnregisterDllNotification") == 0 ? reinterpret_cast<FARPROC>(&UnregisterAndFail)
                                                             : GetProcAddress(module, name);
}

/// Looks on as the loader unloads libraries, after the Agent has been notified.
class UnloadWatch
{
public:
    UnloadWatch()
    {
        using Register = LONG(NTAPI*)(ULONG flags, void* routine, void* context, void** cookie);
        const auto add = FindExport<Register>(GetModuleHandleW(L"ntdll.dll"), "LdrRegisterDllNotification");
        EXPECT_EQ(0, add(0, reinterpret_cast<void*>(&Look), this, &cookie));
    }

    ~UnloadWatch()
    {
        using Unregister = LONG(NTAPI*)(void* cookie);
        FindExport<Unregister>(GetModuleHandleW(L"ntdll.dll"), "LdrUnregisterDllNotification")(cookie);
    }

    UnloadWatch(const UnloadWatch&) = delete;
    UnloadWatch& operator=(const UnloadWatch&) = delete;

    std::vector<std::wstring> found;   ///< by their path, while they were being unloaded
    std::vector<std::wstring> missing; ///< likewise, but not found any more

private:
    /// What the OS hands to a notification.
    struct Data
    {
        ULONG flags;
        const UNICODE_STRING* fullName;
        const UNICODE_STRING* baseName;
        void* base;
        ULONG imageSize;
    };

    static void CALLBACK Look(ULONG reason, const Data* data, void* context)
    {
        constexpr ULONG unloaded = 2;
        if (reason == unloaded)
        {
            UnloadWatch& watch = *static_cast<UnloadWatch*>(context);
            const wchar_t* path = data->fullName->Buffer;
            (GetModuleHandleW(path) != nullptr ? watch.found : watch.missing).push_back(path);
        }
    }

    void* cookie = nullptr;
};

class AutomaticHost : public HostTest
{
protected:
    AutomaticHost()
    {
        EXPECT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}}));
        EXPECT_TRUE(libraries.Write("TvnB.dll"));
    }

    /// What the Bridge half takes for the end of what is sent.
    void SendEnd()
    {
        Library().TvnLogMessageANSI("the end");
    }

    void LoadAndFree(const std::string& name)
    {
        const HMODULE module =
            LoadLibraryExW(libraries.PathOf(name).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        EXPECT_NE(nullptr, module);
        FreeLibrary(module);
    }

    TestLibraries libraries;
};
} // namespace

#define AUTOMATIC_HOST(Name) HOST_TEST_OF(AutomaticHost, AutomaticModules, Name)

AUTOMATIC_HOST(AreNoLongerHandledWhenTheShutdownOfTheLinkBegins)
{
    UseDefaultBridge();
    ReplaceImport("GetProcAddress", FindFailingUnregister);
    ConnectDefaultAgent().TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    Shutdown();
    ExpectLogOrder({"API TvnShutdown",
                    "Call to function LdrUnregisterDllNotification failed. Error: 0xC0000001",
                    "Shutting down agent-bridge communication"});
}

AUTOMATIC_HOST(AreEnabledWhenTheyAreLoadedAndDisabledWhenTheyAreFreed)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    const UnloadWatch watch;
    LoadAndFree("TvnA.dll");
    SendEnd();
    ExpectLogOrder({"API TvnEnableAutomaticHandlingOfDynamicallyLoadedModules",
                    "API TvnGenericEnableAutomaticHandlingOfDynamicallyLoadedModules",
                    "Automatically enabling module", "API TvnGenericEnableModules",
                    "Automatically enabling module", "API TvnGenericEnableModules",
                    "Automatically disabling module", "API TvnGenericDisableModules",
                    "Automatically disabling module", "API TvnGenericDisableModules"});
    // It depends on the OS whether a library that is being unloaded can still be found.
    ASSERT_EQ(2u, watch.found.size() + watch.missing.size());
    for (const std::wstring& path : watch.found)
    {
        EXPECT_EQ(0u, CountInLog("Failed to unload module " + Utf8(path)));
        EXPECT_EQ(1u, CountInLog("Disabling module " + Utf8(path)));
    }
    for (const std::wstring& path : watch.missing)
    {
        EXPECT_EQ(1u, CountInLog("Failed to unload module " + Utf8(path)));
        EXPECT_EQ(0u, CountInLog("Disabling module " + Utf8(path)));
    }
    Publish("disabled", uint64_t{watch.found.size()});
    for (size_t i = 0; i < watch.found.size(); ++i)
    {
        PublishText("disabled " + std::to_string(i), watch.found[i]);
    }
}

AUTOMATIC_HOST(AreLeftAloneWithoutTheCall)
{
    ConnectDefaultAgent();
    LoadAndFree("TvnA.dll");
    SendEnd();
    EXPECT_EQ(0u, CountInLog("Automatically enabling module"));
}

AUTOMATIC_HOST(AreLeftAloneIfTheyArePatches)
{
    UseScenario("AutomaticModules.AreLeftAloneWithoutTheCall");
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    TestLibraries patches(L"builds.patch_1");
    ASSERT_TRUE(patches.Write("Tvn.dll"));
    ASSERT_TRUE(libraries.Write("TvnA.dll.patch_2.dll"));
    ASSERT_NE(nullptr, patches.Load("Tvn.dll"));
    ASSERT_NE(nullptr, libraries.Load("TvnA.dll.patch_2.dll"));
    SendEnd();
    EXPECT_EQ(0u, CountInLog("Automatically enabling module"));
}

AUTOMATIC_HOST(AreEnabledIfTheNarrowFilterKeepsThem)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    volatile LONG asked = 0;
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI(const_cast<LONG*>(&asked), &KeepA);
    ASSERT_NE(nullptr, libraries.Load("TvnA.dll"));
    EXPECT_EQ(2, asked);
    SendEnd();
    EXPECT_TRUE(Await("ended"));
    Shutdown(); // before the libraries go, and what the filter counts in
}

AUTOMATIC_HOST(AreShownToTheWideFilterAloneIfThereAreBoth)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    volatile LONG askedNarrow = 0;
    volatile LONG askedWide = 0;
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI(const_cast<LONG*>(&askedNarrow), &KeepA);
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(const_cast<LONG*>(&askedWide), &RefuseAll);
    LoadAndFree("TvnA.dll");
    SendEnd();
    EXPECT_EQ(0, askedNarrow);
    EXPECT_LE(4, askedWide) << "Two registrations, two libraries.";
    EXPECT_TRUE(Await("ended"));
    Shutdown(); // before what the filters count in goes
}

AUTOMATIC_HOST(AreEnabledAlsoFromWithinAnEntryPoint)
{
    SetEnvironmentVariableW(L"TORVANE_TEST_OTHER_LIBRARY", libraries.PathOf("TvnB.dll").c_str());
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    const HMODULE module = LoadLibraryW(ImagePath(L"LoadsAnother").c_str());
    ASSERT_NE(nullptr, module);
    FreeLibrary(module);
    SendEnd();
}

AUTOMATIC_HOST(DoNotWaitForTheBridge)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    ASSERT_NE(nullptr, libraries.Load("TvnA.dll"));
    Signal("loaded");
    EXPECT_TRUE(Await("executed"));
}

AUTOMATIC_HOST(AreLeftAloneAfterShutdown)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    SendEnd();
    EXPECT_TRUE(Await("ended"));
    Shutdown();
    const size_t records = ReadLog().size();
    LoadAndFree("TvnA.dll");
    EXPECT_EQ(records, ReadLog().size());
    ExpectLogOrder({"API TvnShutdown", "Shutting down agent-bridge communication"});
    ExpectNoErrorsInLog();
}

AUTOMATIC_HOST(AreLeftAloneAfterShutdownByARegistrationThatStays)
{
    UseScenario("AutomaticModules.AreLeftAloneAfterShutdown");
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    SendEnd();
    EXPECT_TRUE(Await("ended"));
    Shutdown();
    const size_t records = ReadLog().size();
    LoadAndFree("TvnA.dll");
    EXPECT_EQ(records, ReadLog().size());
}

AUTOMATIC_HOST(AreEnabledOnManyThreads)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    for (uint32_t i = 0; i < threadCount; ++i)
    {
        ASSERT_TRUE(libraries.Write("TvnOf" + std::to_string(i) + ".dll"));
    }
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    std::vector<std::unique_ptr<TestThread>> threads;
    for (uint32_t i = 0; i < threadCount; ++i)
    {
        threads.push_back(std::make_unique<TestThread>([this, i] {
            for (uint32_t round = 0; round < rounds; ++round)
            {
                LoadAndFree("TvnOf" + std::to_string(i) + ".dll");
            }
        }));
    }
    for (const auto& thread : threads)
    {
        EXPECT_TRUE(thread->WaitForEnd(testTimeout));
    }
    SendEnd();
    EXPECT_EQ(threadCount * rounds, CountInLog("Automatically enabling module"));
    EXPECT_EQ(threadCount * rounds, CountInLog("Automatically disabling module"));
}

#else

#include <algorithm>

namespace
{
using FileNames = std::vector<std::wstring>;

class AutomaticBridge : public ConnectedBridgeTest
{
protected:
    /// Takes everything up to the end mark.
    void ReceiveAll()
    {
        for (;;)
        {
            const Message message = Receive();
            ASSERT_TRUE(message);
            if (message.Type() == BlobType::LogNarrow)
            {
                return;
            }
            if (message.Type() == BlobType::EnableModules)
            {
                Note(ModulesOf(Received<EnableModulesBlob>(message)), enabled);
            }
            else if (message.Type() == BlobType::DisableModules)
            {
                Note(ModulesOf(Received<DisableModulesBlob>(message)), disabled);
            }
            else
            {
                ADD_FAILURE() << BlobName(message.Type());
            }
        }
    }

    static FileNames Sorted(FileNames names)
    {
        std::sort(names.begin(), names.end());
        return names;
    }

    FileNames enabled;
    FileNames disabled;

private:
    static void Note(const std::vector<EnabledModule>& modules, FileNames& names)
    {
        ASSERT_EQ(1u, modules.size());
        names.push_back(FileNameOf(modules[0].path));
    }
};
} // namespace

#define AUTOMATIC_BRIDGE(Name) BRIDGE_SCENARIO_OF(AutomaticBridge, AutomaticModules, Name)

AUTOMATIC_BRIDGE(AreEnabledWhenTheyAreLoadedAndDisabledWhenTheyAreFreed)
{
    ReceiveAll();
    EXPECT_EQ((FileNames{L"TvnA.dll", L"TvnB.dll"}), Sorted(enabled));
    ASSERT_EQ(AwaitNumber("disabled"), disabled.size());
    for (size_t i = 0; i < disabled.size(); ++i)
    {
        EXPECT_EQ(FileNameOf(AwaitText("disabled " + std::to_string(i))), disabled[i]);
    }
}

AUTOMATIC_BRIDGE(AreLeftAloneWithoutTheCall)
{
    ReceiveAll();
    EXPECT_EQ(FileNames(), enabled);
    EXPECT_EQ(FileNames(), disabled);
}

AUTOMATIC_BRIDGE(AreEnabledIfTheNarrowFilterKeepsThem)
{
    ReceiveAll();
    EXPECT_EQ(FileNames{L"TvnA.dll"}, enabled);
    Signal("ended");
}

AUTOMATIC_BRIDGE(AreShownToTheWideFilterAloneIfThereAreBoth)
{
    ReceiveAll();
    EXPECT_EQ(FileNames(), enabled);
    EXPECT_EQ(FileNames(), disabled);
    Signal("ended");
}

AUTOMATIC_BRIDGE(AreEnabledAlsoFromWithinAnEntryPoint)
{
    ReceiveAll();
    EXPECT_EQ((FileNames{L"LoadsAnother.dll", L"TvnB.dll"}), enabled);
}

AUTOMATIC_BRIDGE(DoNotWaitForTheBridge)
{
    ASSERT_TRUE(Await("loaded"));
    for (uint32_t i = 0; i < 2; ++i)
    {
        const auto blob = WaitFor<EnableModulesBlob>();
        ASSERT_TRUE(blob);
        EXPECT_NE(0u, blob->latch);
        SendDecrementLatch(link, blob->latch);
    }
    EXPECT_TRUE(Fence());
    Signal("executed");
}

AUTOMATIC_BRIDGE(AreLeftAloneAfterShutdown)
{
    ReceiveAll();
    EXPECT_EQ(FileNames(), enabled);
    Signal("ended");
}

AUTOMATIC_BRIDGE(AreEnabledOnManyThreads)
{
    ReceiveAll();
    EXPECT_EQ(threadCount * rounds, enabled.size());
    for (uint32_t i = 0; i < threadCount; ++i)
    {
        EXPECT_EQ(int{rounds},
                  std::count(enabled.begin(), enabled.end(), L"TvnOf" + std::to_wstring(i) + L".dll"));
    }
}

#endif
