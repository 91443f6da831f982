#include "Agent/Modules/Windows/AutomaticModuleHandling.h"

#include "Shared/Memory/MemorySystem.h"
#include "Torvane/Agent.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestInternalAPI.h"
#include "tests/Support/TestMemorySystem.h"

#include <gtest/gtest.h>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

/// What the OS hands to a notification.
struct NotificationData
{
    ULONG flags;
    const UNICODE_STRING* fullName;
    const UNICODE_STRING* baseName;
    void* base;
    ULONG imageSize;
};
using LoaderNotification = void CALLBACK(ULONG reason, const NotificationData* data, void* context);

/// Stands in for the loader's two functions.
struct LoaderDouble
{
    static inline NTSTATUS status = 0;
    static inline std::vector<ULONG> flags;
    static inline std::vector<LoaderNotification*> notifications;
    static inline std::vector<void*> contexts;
    static inline std::vector<void*> unregistered;

    static NTSTATUS NTAPI Register(ULONG givenFlags, void* routine, void* context, void** cookie)
    {
        flags.push_back(givenFlags);
        notifications.push_back(reinterpret_cast<LoaderNotification*>(routine));
        contexts.push_back(context);
        if (status >= 0)
        {
            *cookie = reinterpret_cast<void*>(notifications.size());
        }
        return status;
    }

    static NTSTATUS NTAPI Unregister(void* cookie)
    {
        unregistered.push_back(cookie);
        return status;
    }

    static void Notify(ULONG reason, const wchar_t* path, size_t registration = 0)
    {
        UNICODE_STRING name = {};
        name.Buffer = const_cast<wchar_t*>(path);
        name.Length = static_cast<USHORT>(wcslen(path) * sizeof(wchar_t));
        name.MaximumLength = static_cast<USHORT>(name.Length + sizeof(wchar_t));
        const NotificationData data = {0, &name, &name, nullptr, 0};
        ASSERT_LT(registration, notifications.size()) << "Nothing is registered with the loader.";
        notifications[registration](reason, &data, contexts[registration]);
    }
};

class AutomaticModuleHandlingTest : public testing::Test
{
protected:
    AutomaticModuleHandlingTest()
    {
        TestInternalAPI::Get().LdrRegisterDllNotification.pointer = &LoaderDouble::Register;
        TestInternalAPI::Get().LdrUnregisterDllNotification.pointer = &LoaderDouble::Unregister;
        LoaderDouble::status = 0;
        LoaderDouble::flags.clear();
        LoaderDouble::notifications.clear();
        LoaderDouble::contexts.clear();
        LoaderDouble::unregistered.clear();
    }

    ~AutomaticModuleHandlingTest() override
    {
        LoaderDouble::status = 0;
        ShutdownAutomaticModuleHandling();
    }

    TestInternalAPI internalAPI;
    TestMemorySystem memory;
    RecordedLog log;
};

constexpr wchar_t absentModule[] = L"C:\\no folder\\absent.dll";
const Lines apiLines = {"DBG API TvnEnableAutomaticHandlingOfDynamicallyLoadedModules",
                        "DBG API TvnGenericEnableAutomaticHandlingOfDynamicallyLoadedModules"};
} // namespace

TEST_F(AutomaticModuleHandlingTest, RegistersWithTheLoader)
{
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    EXPECT_EQ(LoaderDouble::flags, std::vector<ULONG>{0});
    EXPECT_EQ(log.GetLines(), apiLines);
}

TEST_F(AutomaticModuleHandlingTest, LogsTheNameOfItsNarrowForm)
{
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI(nullptr, nullptr);
    EXPECT_EQ(log.GetLines(),
              (Lines{"DBG API TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI", apiLines[1]}));
}

TEST_F(AutomaticModuleHandlingTest, EnablesWhatIsLoadedAndDisablesWhatIsFreed)
{
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    log.Clear();
    LoaderDouble::Notify(1, absentModule);
    EXPECT_EQ(log.GetLines(), (Lines{"INF Automatically enabling module", "DBG API TvnGenericEnableModules",
                                     "ERR Failed to load module C:\\no folder\\absent.dll"}));
    log.Clear();
    LoaderDouble::Notify(2, absentModule);
    EXPECT_EQ(log.GetLines(), (Lines{"INF Automatically disabling module", "DBG API TvnGenericDisableModules",
                                     "ERR Failed to unload module C:\\no folder\\absent.dll"}));
}

TEST_F(AutomaticModuleHandlingTest, DoesNothingForOtherReasons)
{
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    log.Clear();
    LoaderDouble::Notify(0, absentModule);
    LoaderDouble::Notify(3, absentModule);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(AutomaticModuleHandlingTest, LeavesPatchesAlone)
{
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    log.Clear();
    for (const ULONG reason : {1, 2})
    {
        LoaderDouble::Notify(reason, L"C:\\game\\game.exe.patch_0.dll");
        LoaderDouble::Notify(reason, L"C:\\builds.patch_7\\game.dll");
        LoaderDouble::Notify(reason, L".patch_");
    }
    EXPECT_EQ(log.GetLines(), Lines());
    for (const wchar_t* path : {L"C:\\game.patch\\game.dll", L"C:\\patch_1.dll", L"C:\\game.PATCH_1.dll"})
    {
        log.Clear();
        LoaderDouble::Notify(1, path);
        EXPECT_EQ(log.Count("INF Automatically enabling module"), 1u);
    }
}

TEST_F(AutomaticModuleHandlingTest, EndsWithShutdown)
{
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    log.Clear();
    ShutdownAutomaticModuleHandling();
    EXPECT_EQ(LoaderDouble::unregistered, std::vector<void*>{reinterpret_cast<void*>(1)});
    EXPECT_EQ(log.GetLines(), Lines());
    ShutdownAutomaticModuleHandling();
    EXPECT_EQ(LoaderDouble::unregistered.size(), 1u);
}

TEST_F(AutomaticModuleHandlingTest, LeavesTheLoaderAloneIfItWasNeverTurnedOn)
{
    ShutdownAutomaticModuleHandling();
    EXPECT_TRUE(LoaderDouble::unregistered.empty());
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(AutomaticModuleHandlingTest, RegistersAgainWithEachCallAndUnregistersTheLastAlone)
{
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI(nullptr, nullptr);
    ASSERT_EQ(LoaderDouble::contexts.size(), 2u);
    EXPECT_NE(LoaderDouble::contexts[0], LoaderDouble::contexts[1]);
    log.Clear();
    LoaderDouble::Notify(1, absentModule, 0);
    LoaderDouble::Notify(1, absentModule, 1);
    EXPECT_EQ(log.Count("INF Automatically enabling module"), 2u);
    ShutdownAutomaticModuleHandling();
    EXPECT_EQ(LoaderDouble::unregistered, std::vector<void*>{reinterpret_cast<void*>(2)});
}

TEST_F(AutomaticModuleHandlingTest, DoesNothingAfterShutdownForAnEarlierRegistration)
{
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    ShutdownAutomaticModuleHandling();
    log.Clear();
    LoaderDouble::Notify(1, absentModule, 0);
    LoaderDouble::Notify(2, absentModule, 0);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(AutomaticModuleHandlingTest, KeepsItsRecordIfItCannotRegister)
{
    Allocation block = Allocate(2 * sizeof(void*)); // as large as the record, which reuses it
    void* reused = block.pointer;
    memset(reused, 0xEE, 2 * sizeof(void*));
    Free(block);
    LoaderDouble::status = static_cast<NTSTATUS>(0xC000000D);
    TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    EXPECT_EQ(LoaderDouble::contexts, std::vector<void*>{reused});
    EXPECT_EQ(log.GetLines().back(),
              "ERR Call to function LdrRegisterDllNotification failed. Error: 0xC000000D");
    log.Clear();
    ShutdownAutomaticModuleHandling();
    EXPECT_EQ(LoaderDouble::unregistered, std::vector<void*>{nullptr});
    EXPECT_EQ(log.GetLines(),
              Lines{"ERR Call to function LdrUnregisterDllNotification failed. Error: 0xC000000D"});
}
} // namespace Torvane::Testing
