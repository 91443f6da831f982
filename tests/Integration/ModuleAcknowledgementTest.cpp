#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// A Bridge counts the latch of a call down as often as the call waits for, although it isn't sent all modules.

namespace
{
constexpr uint32_t calls = 3;
}

#if TORVANE_HOST_HALF

#include "tests/Support/TestThread.h"

#include <wchar.h>

namespace
{
/// Keeps the executable alone, of the many modules that are its imports.
bool TVN_CALL KeepExecutable(void* asked, const wchar_t* path)
{
    InterlockedIncrement(static_cast<volatile LONG*>(asked));
    return wcsstr(path, L".exe") != nullptr;
}

class AcknowledgementHost : public HostTest
{
protected:
    /// \return how many modules the call has found.
    uint32_t EnableExecutable(TvnDefaultAgent& agent)
    {
        wchar_t path[1024] = {};
        GetModuleFileNameW(nullptr, path, 1024);
        volatile LONG asked = 0;
        agent.TvnEnableModule(path, IncludeImports, const_cast<LONG*>(&asked), &KeepExecutable);
        return static_cast<uint32_t>(asked);
    }
};
} // namespace

#define ACKNOWLEDGEMENT_HOST(Name) HOST_TEST_OF(AcknowledgementHost, ModuleAcknowledgement, Name)

ACKNOWLEDGEMENT_HOST(OfTheDefaultBridgeLetsACallWithAFilterReturn)
{
    UseDefaultBridge();
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    const TestThread caller([&] {
        for (uint32_t i = 0; i < calls; ++i)
        {
            EXPECT_LT(1u, EnableExecutable(agent));
        }
    });
    EXPECT_TRUE(caller.WaitForEnd(testTimeout));
    ExpectNoErrorsInLog();
}

ACKNOWLEDGEMENT_HOST(IsExactSoThatTheNextCallAtTheSameAddressWaits)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    volatile LONG returned = 0;
    uint32_t found[calls] = {};
    const TestThread caller([&] {
        for (uint32_t& count : found)
        {
            count = EnableExecutable(agent);
            InterlockedIncrement(&returned);
        }
    });
    for (uint32_t i = 0; i < calls; ++i)
    {
        const std::string number = std::to_string(i);
        EXPECT_TRUE(Await("received " + number));
        EXPECT_FALSE(caller.WaitForEnd(quietPeriod));
        EXPECT_EQ(static_cast<LONG>(i), returned) << "It hasn't been acknowledged yet.";
        Signal("waits " + number);
        const auto acknowledged = static_cast<uint32_t>(AwaitNumber("acknowledged " + number));
        EXPECT_TRUE(WaitUntil([&] { return returned == static_cast<LONG>(i + 1); }));
        EXPECT_EQ(found[i], acknowledged);
    }
    EXPECT_TRUE(caller.WaitForEnd(testTimeout));
}

#else

BRIDGE_SCENARIO(ModuleAcknowledgement, IsExactSoThatTheNextCallAtTheSameAddressWaits)
{
    AddressSlot latch = 0;
    for (uint32_t i = 0; i < calls; ++i)
    {
        const std::string number = std::to_string(i);
        const auto enabled = WaitFor<EnableModulesBlob>();
        ASSERT_TRUE(enabled);
        EXPECT_EQ(1u, enabled->modules.count);
        EXPECT_TRUE(i == 0 || latch == enabled->latch);
        latch = enabled->latch;
        ASSERT_TRUE(Fence()); // what earlier calls were sent has been executed
        Signal("received " + number);
        ASSERT_TRUE(Await("waits " + number));
        Publish("acknowledged " + number, uint64_t{AcknowledgeModules(link, host, enabled)});
    }
}

#endif
