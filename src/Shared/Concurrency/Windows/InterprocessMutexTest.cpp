#include "Shared/Concurrency/Windows/InterprocessMutex.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/FakeWait.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestThread.h"

#include <atomic>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr const char* staleLine =
    "ERR Wait() was called on a stale mutex which was not released by the owning thread";

/// What the mutex guards: two fields that are changed together.
struct SharedFields
{
    uint32_t first;
    uint32_t second;
};

/// A section of this name, and a mutex whose name is one longer.
class SharedSection
{
public:
    explicit SharedSection(const wchar_t* name)
        : mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(SharedFields),
                                     name))
        , fields(static_cast<SharedFields*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0)))
    {
    }

    ~SharedSection()
    {
        UnmapViewOfFile(fields);
        CloseHandle(mapping);
    }

    SharedSection(const SharedSection&) = delete;
    SharedSection& operator=(const SharedSection&) = delete;

    SharedFields* operator->() const
    {
        return fields;
    }

private:
    HANDLE mapping;
    SharedFields* fields;
};

std::wstring MutexNameOf(const wchar_t* section)
{
    return std::wstring(section) + L"M";
}

/// Dies between the changes of the two fields, with the mutex.
const ChildRole dyingOwner(L"dying owner", [](const wchar_t* name) {
    const SharedSection section(name);
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, MutexNameOf(name).c_str());
    WaitForSingleObject(mutex, testTimeout);
    section->first = 2;
    TerminateProcess(GetCurrentProcess(), 0);
});

/// Changes both fields as it should.
const ChildRole orderlyOwner(L"orderly owner", [](const wchar_t* name) {
    const SharedSection section(name);
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, MutexNameOf(name).c_str());
    WaitForSingleObject(mutex, testTimeout);
    section->first = 2;
    section->second = 2;
    ReleaseMutex(mutex);
});

/// A name that no other run of the tests has.
std::wstring OwnName(const wchar_t* test)
{
    return std::wstring(L"TorvaneTest") + test + std::to_wstring(GetCurrentProcessId());
}

class InterprocessMutexTest : public testing::Test
{
protected:
    ~InterprocessMutexTest() override
    {
        mutex.Destroy();
    }

    /// Whether a thread could take the mutex now. It gives it back.
    bool IsFree() const
    {
        bool isFree = false;
        {
            const TestThread other([&] {
                isFree = WaitForSingleObject(mutex.handle, 0) == WAIT_OBJECT_0;
                if (isFree)
                {
                    ReleaseMutex(mutex.handle);
                }
            });
        }
        return isFree;
    }

    RecordedLog log;
    const std::wstring section = OwnName(L"Section");
    InterprocessMutex mutex = {InterprocessMutex::Create(MutexNameOf(section.c_str()).c_str()).payload};
};
} // namespace

// Creation

TEST(InterprocessMutex, IsMadeWithItsNameAndWithoutAnOwner)
{
    const RecordedLog log;
    const std::wstring wanted = OwnName(L"Made");
    uint32_t calls = 0;
    const FakeImport create("CreateMutexW", [&](decltype(&CreateMutexW) real,
                                                LPSECURITY_ATTRIBUTES attributes, BOOL owned, LPCWSTR name) {
        ++calls;
        EXPECT_EQ(attributes, nullptr);
        EXPECT_FALSE(owned);
        EXPECT_EQ(name, wanted);
        return real(attributes, owned, name);
    });
    const Result<HANDLE> result = InterprocessMutex::Create(wanted.c_str());
    EXPECT_EQ(calls, 1u);
    EXPECT_EQ(result.error, nullptr);
    InterprocessMutex mutex = {result.payload};
    mutex.Destroy();
    EXPECT_EQ(mutex.handle, INVALID_HANDLE_VALUE);
    DWORD information = 0;
    EXPECT_FALSE(GetHandleInformation(result.payload, &information));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST(InterprocessMutex, ReportsWhichOneCouldNotBeCreated)
{
    const RecordedLog log;
    const std::wstring name = OwnName(L"Taken");
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, name.c_str()); // the name is an event's
    const Result<HANDLE> result = InterprocessMutex::Create(name.c_str());
    EXPECT_STREQ(result.error, "CreateMutexW(%ls) failed.");
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(log.GetLines(),
              (Lines{"DBG CreateMutexW(" + std::string(name.begin(), name.end()) + ") failed.",
                     OSErrorLine(ERROR_INVALID_HANDLE)}));
    CloseHandle(event);
}

// Locks

TEST_F(InterprocessMutexTest, IsHeldForAScope)
{
    EXPECT_TRUE(IsFree());
    {
        const ScopedInterprocessLock lock(mutex);
        EXPECT_FALSE(IsFree());
    }
    EXPECT_TRUE(IsFree());
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(InterprocessMutexTest, IsTheSameForEveryHandleOfItsName)
{
    InterprocessMutex other = {InterprocessMutex::Create(MutexNameOf(section.c_str()).c_str()).payload};
    EXPECT_NE(other.handle, mutex.handle);
    {
        const ScopedInterprocessLock lock(other);
        EXPECT_FALSE(IsFree());
    }
    EXPECT_TRUE(IsFree());
    other.Destroy();
}

TEST_F(InterprocessMutexTest, CanBeTakenAgainByItsOwner)
{
    const ScopedInterprocessLock outer(mutex);
    {
        const ScopedInterprocessLock inner(mutex);
    }
    EXPECT_FALSE(IsFree());
}

TEST_F(InterprocessMutexTest, WaitsWithoutALimitUntilItIsFree)
{
    {
        const FakeWait wait(mutex.handle, WAIT_OBJECT_0);
        const ScopedInterprocessLock lock(mutex);
        EXPECT_EQ(wait.GetTimeOuts(), std::vector<DWORD>{INFINITE});
    }
    std::atomic<bool> held = false;
    ASSERT_EQ(WaitForSingleObject(mutex.handle, 0), WAIT_OBJECT_0);
    const TestThread waiting([&] {
        const ScopedInterprocessLock lock(mutex);
        held = true;
    });
    EXPECT_FALSE(waiting.WaitForEnd(quietPeriod));
    EXPECT_FALSE(held);
    ReleaseMutex(mutex.handle);
    EXPECT_TRUE(waiting.WaitForEnd());
    EXPECT_TRUE(held);
}

TEST_F(InterprocessMutexTest, AdmitsOneThreadAtATime)
{
    SharedFields fields = {};
    std::atomic<uint32_t> torn = 0;
    const auto body = [&] {
        for (uint32_t i = 0; i < 1000; ++i)
        {
            const ScopedInterprocessLock lock(mutex);
            torn += fields.first == fields.second ? 0 : 1;
            ++fields.first;
            if (i % 10 == 0)
            {
                SwitchToThread();
            }
            ++fields.second;
        }
    };
    {
        const TestThread first(body);
        const TestThread second(body);
        const TestThread third(body);
    }
    EXPECT_EQ(torn, 0u);
    EXPECT_EQ(fields.second, 3000u);
}

// Other processes

TEST_F(InterprocessMutexTest, IsSharedWithAnotherProcess)
{
    const SharedSection shared(section.c_str());
    orderlyOwner.Run(section.c_str());
    const ScopedInterprocessLock lock(mutex);
    EXPECT_EQ(shared->first, 2u);
    EXPECT_EQ(shared->second, 2u);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(InterprocessMutexTest, IsTakenOverFromAProcessThatDied)
{
    const SharedSection shared(section.c_str());
    shared->first = 1;
    shared->second = 1;
    dyingOwner.Run(section.c_str());
    {
        const ScopedInterprocessLock lock(mutex);
        EXPECT_EQ(log.GetLines(), Lines{staleLine});
        EXPECT_FALSE(IsFree());
        EXPECT_EQ(shared->first, 2u); // as the dead process left them
        EXPECT_EQ(shared->second, 1u);
    }
    EXPECT_TRUE(IsFree());
    const ScopedInterprocessLock again(mutex);
    EXPECT_EQ(log.Count(staleLine), 1u);
}

TEST_F(InterprocessMutexTest, IsTakenOverFromAThreadThatEnded)
{
    {
        const TestThread owner([&] { EXPECT_EQ(WaitForSingleObject(mutex.handle, 0), WAIT_OBJECT_0); });
    }
    {
        const ScopedInterprocessLock lock(mutex);
        EXPECT_EQ(log.GetLines(), Lines{staleLine});
        EXPECT_FALSE(IsFree());
    }
    EXPECT_TRUE(IsFree());
    EXPECT_EQ(log.GetLines(), Lines{staleLine});
}

// Waits that fail

TEST_F(InterprocessMutexTest, ContinuesAfterAFailedWaitAndReleasesAllTheSame)
{
    struct Row
    {
        DWORD result;
        Lines lines;
    };
    const Row rows[] = {{WAIT_TIMEOUT, {"ERR Mutex timed out"}},
                        {WAIT_FAILED, {"ERR Failed to Wait() on a mutex"}},
                        {WAIT_ABANDONED, {staleLine}},
                        {WAIT_OBJECT_0, {}},
                        {WAIT_IO_COMPLETION, {}}};
    std::vector<HANDLE> released;
    const FakeImport release("ReleaseMutex", [&](decltype(&ReleaseMutex) real, HANDLE object) {
        released.push_back(object);
        return real(object);
    });
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.result);
        log.Clear();
        released.clear();
        const FakeWait wait(mutex.handle, row.result);
        {
            const ScopedInterprocessLock lock(mutex);
            EXPECT_EQ(log.GetLines(), row.lines);
            EXPECT_TRUE(released.empty());
        }
        EXPECT_EQ(released, std::vector<HANDLE>{mutex.handle});
        EXPECT_EQ(log.GetLines(), row.lines);
    }
}

TEST(InterprocessMutex, ReportsALockWithoutAHandle)
{
    const RecordedLog log;
    const InterprocessMutex none = {nullptr};
    {
        const ScopedInterprocessLock lock(none);
    }
    EXPECT_EQ(log.GetLines(), Lines{"ERR Failed to Wait() on a mutex"});
}
} // namespace Torvane::Testing
