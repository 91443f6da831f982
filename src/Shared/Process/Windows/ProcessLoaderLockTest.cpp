#include "Shared/Process/Windows/ProcessLoaderLock.h"

#include "Shared/Foundation/FixedString.h"
#include "tests/Support/RecordedLog.h"

#include <stdint.h>

#include <gtest/gtest.h>
#include <windows.h>

namespace Torvane::Testing
{
namespace
{
/// The loader's own functions for its lock, which headers don't declare.
using LockFunction = LONG NTAPI(ULONG flags, ULONG* disposition, ULONG_PTR* cookie);
using UnlockFunction = LONG NTAPI(ULONG flags, ULONG_PTR cookie);

template<typename Function>
Function* FindLoaderFunction(const char* name)
{
    const auto address = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name);
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(address));
}
} // namespace

TEST(ProcessLoaderLock, IsTheSectionThatTheLoaderWorksUnder)
{
    const RecordedLog log;
    const auto* lock = static_cast<const RTL_CRITICAL_SECTION*>(GetLoaderLock());
    FixedString line = {};
    line.Format("DBG Found loader lock at 0x%p", lock);
    EXPECT_EQ(log.GetLines(), std::vector<std::string>{line.text});

    auto* enter = FindLoaderFunction<LockFunction>("LdrLockLoaderLock");
    auto* leave = FindLoaderFunction<UnlockFunction>("LdrUnlockLoaderLock");
    ASSERT_NE(enter, nullptr);
    ASSERT_NE(leave, nullptr);
    ULONG_PTR cookie = 0;
    ASSERT_EQ(enter(0, nullptr, &cookie), 0);
    const uintptr_t owner = reinterpret_cast<uintptr_t>(lock->OwningThread);
    const LONG recursion = lock->RecursionCount;
    EXPECT_EQ(leave(0, cookie), 0);
    EXPECT_EQ(owner, GetCurrentThreadId());
    EXPECT_EQ(recursion, 1);
    EXPECT_EQ(lock->OwningThread, nullptr);
}
} // namespace Torvane::Testing
