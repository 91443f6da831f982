#pragma once

/// \file
/// What tests of process memory use: the memory system, the OS's functions, a recorded log, pages; one thread.

#include "Shared/Memory/Windows/MemoryDefaultAllocators.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestInternalAPI.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <stdint.h>
#include <windows.h>

namespace Torvane::Testing
{
constexpr uint32_t testPageSize = 4096;

/// Pages of the process, committed one by one or all at once, released at the end.
class TestPages
{
public:
    /// \param allocation `MEM_RESERVE`, `MEM_COMMIT` or both.
    explicit TestPages(uint32_t pages, DWORD protection = PAGE_READWRITE,
                       DWORD allocation = MEM_RESERVE | MEM_COMMIT)
        : base(static_cast<uint8_t*>(VirtualAlloc(nullptr, pages * testPageSize, allocation, protection)))
    {
        EXPECT_NE(base, nullptr);
    }

    ~TestPages()
    {
        VirtualFree(base, 0, MEM_RELEASE);
    }

    TestPages(const TestPages&) = delete;
    TestPages& operator=(const TestPages&) = delete;

    uint8_t* At(uint32_t page, int32_t offset = 0) const
    {
        return base + page * testPageSize + offset;
    }

    void Commit(uint32_t page, DWORD protection) const
    {
        EXPECT_NE(VirtualAlloc(At(page), testPageSize, MEM_COMMIT, protection), nullptr);
    }

    void Protect(uint32_t page, DWORD protection) const
    {
        DWORD before = 0;
        EXPECT_TRUE(VirtualProtect(At(page), testPageSize, protection, &before));
    }

    DWORD GetProtection(uint32_t page) const
    {
        return GetProtectionOf(At(page));
    }

    static DWORD GetProtectionOf(const void* address)
    {
        MEMORY_BASIC_INFORMATION information = {};
        EXPECT_NE(VirtualQuery(address, &information, sizeof(information)), 0u);
        return information.Protect;
    }

private:
    uint8_t* base;
};

/// Counts the queries of memory, and answers them as the test specifies.
struct FakeQuery
{
    static inline uint32_t calls = 0;
    static inline uint32_t firstFailure =
        0;                              ///< the number of the call that fails, counted from 1; 0 for none
    static inline NTSTATUS failure = 0; ///< its status
    static inline DWORD protection = 0; ///< if not 0, what every query gives
    static inline WindowsInternalAPI real = {};

    static NTSTATUS NTAPI Query(HANDLE process, const void* address, MemoryInformationClass informationClass,
                                void* information, SIZE_T size, SIZE_T* returned)
    {
        ++calls;
        const auto* bytes = static_cast<const uint8_t*>(information);
        EXPECT_EQ(static_cast<SIZE_T>(std::count(bytes, bytes + size, 0)), size) << "It isn't cleared.";
        if (calls == firstFailure)
        {
            return failure;
        }
        const NTSTATUS status =
            real.NtQueryVirtualMemory(process, address, informationClass, information, size, returned);
        if (protection != 0)
        {
            static_cast<MEMORY_BASIC_INFORMATION*>(information)->Protect = protection;
        }
        return status;
    }

    /// Takes the place of the table's entry; the fixture puts the real one back.
    static void Install()
    {
        TestInternalAPI::Get().NtQueryVirtualMemory.pointer = &Query;
    }
};

class ProcessMemoryFixture : public testing::Test
{
protected:
    ProcessMemoryFixture()
    {
        StartupMemorySystem();
        StartupWindowsInternalAPI();
        FakeQuery::calls = 0;
        FakeQuery::firstFailure = 0;
        FakeQuery::protection = 0;
        FakeQuery::real = GetWindowsInternalAPI();
        log.Clear();
    }

    ~ProcessMemoryFixture() override
    {
        ShutdownMemorySystem();
    }

    TestInternalAPI internalAPI;
    RecordedLog log;
};
} // namespace Torvane::Testing
