#pragma once

/// \file
/// Integration tests: the real library in a real 32-bit host, a real 64-bit Bridge process, real pipes. Included
/// by every file in `tests/Integration`, which is compiled twice.
///
/// A test is a pair with one name, in one file. The host half is a GoogleTest test of `IntegrationTests.exe`
/// (32-bit, `TORVANE_HOST_HALF` is 1). The Bridge half is compiled into the `TVN_Agent_Bridge_x64.exe` beside the copy
/// of the Agent that these tests load; the Agent spawns it, and it runs the half of the test that spawned it. Both
/// halves use GoogleTest's assertions: what fails in the Bridge fails the test, with its message.
///
///     #include "tests/Support/Integration/IntegrationTest.h"
///
///     #if TORVANE_HOST_HALF
///
///     HOST_TEST(Memory, ReadsWhatTheHostHas)
///     {
///         static uint32_t number = 0x12345678;
///         Publish("number", &number);
///         ConnectDefaultAgent();
///         EXPECT_TRUE(Await("checked"));
///         EXPECT_TRUE(WaitForLog("Processing Blob::ReadMemory"));
///     }
///
///     #else
///
///     BRIDGE_SCENARIO(Memory, ReadsWhatTheHostHas)
///     {
///         SendReadMemory(link, 4, {AwaitNumber("number")}, 1);
///         const auto reply = WaitFor<ReadMemoryResultBlob>();
///         ASSERT_TRUE(reply);
///         EXPECT_EQ(4u, reply->totalSize);
///     }
///
///     #endif
///
/// `HostTest.h` and `BridgeTest.h` describe what either half can use (and `LinkTest.h`, for tests that break the link);
/// `Channel.h` what they exchange.
///
/// - Each test runs in a process of its own: a process has one Agent in its life. CTest starts one for each test;
///   a run of several tests by hand starts a child for each.
/// - A Bridge half is connected when its body begins. After its body it publishes "checked" and stays connected until
///   the Agent closes its pipes. One that tests the connection itself is a `BRIDGE_SCENARIO_OF(BridgeTest, ...)`.
/// - A host half ends with the shutdown of its Agent, and waits for its Bridge half. It reports the Agent's whole log if
///   anything failed.
/// - No wait is without a limit. A test that takes longer than a minute is ended with a message.
/// - Waits are on conditions (`Await`, `WaitForLog`, `WaitFor`) with the limit `testTimeout`, never on time.

#if TORVANE_HOST_HALF
#include "Agent/Protocol/Names.h"
#include "tests/Support/Integration/HostTest.h"
#include "tests/Support/Integration/LinkTest.h"
#else
#include "tests/Support/Integration/BridgeTest.h"
#include "tests/Support/Integration/RawPipeBridge.h"

using namespace Torvane::Bridge;
#endif
using namespace Torvane;
using namespace Torvane::Testing;

#if TORVANE_HOST_HALF

/// The host half of a test; a member function of a class derived from `HostTest`.
#define HOST_TEST(Suite, Name) HOST_TEST_OF(::Torvane::Testing::HostTest, Suite, Name)

/// The same for a base of the test's own, which is derived from `HostTest`.
#define HOST_TEST_OF(Base, Suite, Name)                                                              \
    class Suite##_##Name##_Host : public Base                                                        \
    {                                                                                                \
        void HostHalf() override;                                                                    \
    };                                                                                               \
    [[maybe_unused]] static const auto* const Suite##_##Name##_Registered = ::testing::RegisterTest( \
        #Suite, #Name, nullptr, nullptr, __FILE__, __LINE__,                                         \
        []() -> ::Torvane::Testing::HostTest* { return new Suite##_##Name##_Host; });                \
    void Suite##_##Name##_Host::HostHalf()

#else

/// The Bridge half of the test of the same name; a member function of a class derived from `ConnectedBridgeTest`.
#define BRIDGE_SCENARIO(Suite, Name) BRIDGE_SCENARIO_OF(::Torvane::Testing::ConnectedBridgeTest, Suite, Name)

/// The same for a base of the test's own, which is derived from `BridgeTest`.
#define BRIDGE_SCENARIO_OF(Base, Suite, Name)                                                        \
    class Suite##_##Name##_Bridge : public Base                                                      \
    {                                                                                                \
        void TestBody() override;                                                                    \
    };                                                                                               \
    [[maybe_unused]] static const auto* const Suite##_##Name##_Registered = ::testing::RegisterTest( \
        #Suite, #Name, nullptr, nullptr, __FILE__, __LINE__,                                         \
        []() -> ::Torvane::Testing::BridgeTest* { return new Suite##_##Name##_Bridge; });            \
    void Suite##_##Name##_Bridge::TestBody()

#endif
