#include "Shared/Process/Windows/SpinForever.h"

#include "tests/Support/TestThread.h"

#include <stdint.h>
#include <string.h>

namespace Torvane::Testing
{
namespace
{
const void* InstructionOf(HANDLE thread)
{
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    EXPECT_NE(SuspendThread(thread), DWORD(-1));
    EXPECT_TRUE(GetThreadContext(thread, &context));
    ResumeThread(thread);
    return reinterpret_cast<const void*>(uintptr_t{context.Eip});
}
} // namespace

TEST(SpinForever, IsTwoBytesLong)
{
    const uint8_t expected[] = {0xEB, 0xFE};
    EXPECT_EQ(memcmp(reinterpret_cast<const void*>(&SpinForever), expected, sizeof(expected)), 0);
}

TEST(SpinForever, KeepsAThreadInPlace)
{
    const auto* place = reinterpret_cast<const void*>(&SpinForever);
    const HANDLE thread =
        CreateThread(nullptr, 0, reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<uintptr_t>(place)),
                     nullptr, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(WaitUntil([&] { return InstructionOf(thread) == place; }));
    for (uint32_t i = 0; i < 10; ++i)
    {
        EXPECT_EQ(WaitForSingleObject(thread, 1), DWORD{WAIT_TIMEOUT});
        EXPECT_EQ(InstructionOf(thread), place);
    }
    TerminateThread(thread, 0);
    EXPECT_EQ(WaitForSingleObject(thread, testTimeout), WAIT_OBJECT_0);
    CloseHandle(thread);
}
} // namespace Torvane::Testing
