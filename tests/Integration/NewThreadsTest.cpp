#include "tests/Support/Integration/IntegrationTest.h"
#include "tests/Support/TestThread.h"

#include <windows.h>

// The Bridge suspends a host that starts threads all the time. Some are caught before they have started, with the thread
// that creates them suspended.

#if TORVANE_HOST_HALF

HOST_TEST(NewThreads, AreSuspendedBeforeTheyStart)
{
    static volatile LONG count; // changes all the time unless all threads are suspended
    static volatile LONG stop;
    ConnectDefaultAgent();
    {
        const std::function<void()> create = [] {
            while (stop == 0)
            {
                const TestThread thread([] { InterlockedIncrement(&count); });
                Sleep(1);
            }
        };
        const TestThread creators[] = {TestThread(create), TestThread(create), TestThread(create)};
        Publish("agent", Library().Module());
        Publish("count", const_cast<const LONG*>(&count));
        EXPECT_TRUE(Await("suspended", 2 * testTimeout));
        stop = 1;
    }
    EXPECT_LT(0, count);
}

#else

BRIDGE_SCENARIO(NewThreads, AreSuspendedBeforeTheyStart)
{
    constexpr uint32_t rounds = 40; // with about ten threads that haven't started
    const AddressSlot count = AwaitNumber("count");
    const HostProcess::Image image = host.ImageAt(AwaitNumber("agent"));
    ThreadSuspender threads(host.Id(), AgentThreads(*process));
    for (uint32_t round = 0; round < rounds; ++round)
    {
        // Reported when the host runs: it may have been suspended with the lock that a report needs.
        const Result<> suspension = threads.Suspend();
        const uint32_t suspended = threads.Count();
        const std::vector<uint8_t> before = host.Read(count, sizeof(LONG));
        Sleep(2);
        const std::vector<uint8_t> after = host.Read(count, sizeof(LONG));
        threads.RunUntilOutside(image.base, image.size);
        threads.Resume();
        EXPECT_TRUE(suspension) << suspension.Reason();
        EXPECT_LE(4u, suspended);
        EXPECT_EQ(before, after);
        Sleep(1);
    }
    Signal("suspended");
}

#endif
