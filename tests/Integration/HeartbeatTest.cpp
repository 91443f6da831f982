#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The heartbeat: what it writes, how often, and under which lock.

#if TORVANE_HOST_HALF

#include <string.h>

namespace
{
constexpr DWORD sectionSize = 4096;
constexpr uint8_t untouched = 0xA5;
constexpr uint32_t severalBeats = 200; // milliseconds

/// The calls of one beat and the next poll, by the thread that sleeps.
struct BeatCalls
{
    static inline SRWLOCK lock = SRWLOCK_INIT;
    static inline std::vector<std::pair<DWORD, std::string>> calls; ///< each with its thread
    static inline DWORD beatingThread = 0;

    static void Note(const std::string& call)
    {
        AcquireSRWLockExclusive(&lock);
        calls.emplace_back(GetCurrentThreadId(), call);
        ReleaseSRWLockExclusive(&lock);
    }

    static void WINAPI NoteTime(FILETIME* time)
    {
        Note("time");
        GetSystemTimeAsFileTime(time);
    }

    static DWORD WINAPI NoteWait(HANDLE handle, DWORD milliseconds)
    {
        Note(milliseconds == INFINITE ? "wait" : "poll " + std::to_string(milliseconds));
        return WaitForSingleObject(handle, milliseconds);
    }

    static BOOL WINAPI NoteRelease(HANDLE mutex)
    {
        Note("release");
        return ReleaseMutex(mutex);
    }

    static void WINAPI NoteSleep(DWORD milliseconds)
    {
        Note("sleep " + std::to_string(milliseconds));
        beatingThread = GetCurrentThreadId();
        Sleep(milliseconds);
    }

    static std::vector<std::string> OfBeatingThread()
    {
        AcquireSRWLockShared(&lock);
        std::vector<std::string> own;
        for (const auto& [thread, call] : calls)
        {
            if (thread == beatingThread)
            {
                own.push_back(call);
            }
        }
        ReleaseSRWLockShared(&lock);
        return own;
    }
};

class HeartbeatTest : public HostTest
{
protected:
    /// Creates the section before the Agent does, filled with what isn't its own.
    void FillSection()
    {
        const HANDLE section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                  sectionSize, NameOf(heartbeatSectionPrefix).c_str());
        view = static_cast<uint8_t*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, sectionSize));
        ASSERT_NE(nullptr, view);
        memset(view, untouched, sectionSize);
    }

    uint64_t LastBeat() const
    {
        uint64_t beat = 0;
        memcpy(&beat, view, sizeof(beat));
        return beat;
    }

    bool WaitForBeatAfter(uint64_t beat, uint32_t milliseconds = testTimeout) const
    {
        return WaitUntil([&] { return LastBeat() != beat; }, milliseconds);
    }

    static std::wstring NameOf(const wchar_t* prefix)
    {
        return prefix + std::to_wstring(GetCurrentProcessId());
    }

    uint8_t* view = nullptr;
};
} // namespace

#define HEARTBEAT(Name) HOST_TEST_OF(HeartbeatTest, HeartbeatThread, Name)

HEARTBEAT(BeatsUntilShutdown)
{
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("beating"));
    Shutdown();
    ExpectLogOrder({"Creating heartbeat thread", "Running heart beat thread", "Exiting heart beat thread"});
    Signal("shut down");
}

HEARTBEAT(TakesTheMutexForEachBeatAndSleepsTenMilliseconds)
{
    UseDefaultBridge();
    ReplaceImport("GetSystemTimeAsFileTime", BeatCalls::NoteTime);
    ReplaceImport("WaitForSingleObject", BeatCalls::NoteWait);
    ReplaceImport("ReleaseMutex", BeatCalls::NoteRelease);
    ReplaceImport("Sleep", BeatCalls::NoteSleep);
    ConnectDefaultAgent();
    const std::vector<std::string> beat = {"poll 0", "time", "wait", "release", "sleep 10"};
    constexpr size_t beats = 20;
    ASSERT_TRUE(WaitUntil([&] { return BeatCalls::OfBeatingThread().size() >= beats * beat.size(); }));
    const std::vector<std::string> calls = BeatCalls::OfBeatingThread();
    for (size_t i = 0; i < calls.size(); ++i)
    {
        ASSERT_EQ(beat[i % beat.size()], calls[i]) << "call " << i;
    }
}

HEARTBEAT(WritesOnlyWhileNobodyElseHasTheMutex)
{
    UseDefaultBridge();
    FillSection();
    ConnectDefaultAgent();
    uint64_t filling = 0;
    memset(&filling, untouched, sizeof(filling));
    ASSERT_TRUE(WaitForBeatAfter(filling));
    const HANDLE mutex = OpenMutexW(MUTEX_ALL_ACCESS, FALSE, NameOf(heartbeatMutexPrefix).c_str());
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex, testTimeout));
    const uint64_t last = LastBeat();
    EXPECT_FALSE(WaitForBeatAfter(last, severalBeats));
    ReleaseMutex(mutex);
    EXPECT_TRUE(WaitForBeatAfter(last));
    CloseHandle(mutex);
}

HEARTBEAT(WritesNothingButTheTime)
{
    UseDefaultBridge();
    FillSection();
    FILETIME before = {};
    GetSystemTimeAsFileTime(&before);
    ConnectDefaultAgent();
    uint64_t filling = 0;
    memset(&filling, untouched, sizeof(filling));
    ASSERT_TRUE(WaitForBeatAfter(filling));
    ASSERT_TRUE(WaitForBeatAfter(LastBeat()));
    Shutdown();
    FILETIME last = {};
    memcpy(&last, view, sizeof(last));
    FILETIME after = {};
    GetSystemTimeAsFileTime(&after);
    EXPECT_LE(CompareFileTime(&before, &last), 0);
    EXPECT_LE(CompareFileTime(&last, &after), 0);
    EXPECT_EQ(std::vector<uint8_t>(sectionSize - sizeof(last), untouched),
              std::vector<uint8_t>(view + sizeof(last), view + sectionSize));
}

#else

BRIDGE_SCENARIO(HeartbeatThread, BeatsUntilShutdown)
{
    const Heartbeat heartbeat(link.HostProcessId());
    ASSERT_TRUE(heartbeat);
    FILETIME before = {};
    GetSystemTimeAsFileTime(&before);
    const uint64_t begin = uint64_t(before.dwHighDateTime) << 32 | before.dwLowDateTime;
    uint64_t last = 0;
    for (int beats = 0; beats < 20; ++beats)
    {
        const uint64_t earlier = last > begin ? last : begin;
        ASSERT_TRUE(WaitUntil([&] { return heartbeat.LastBeat() > earlier; })) << "after " << beats;
        last = heartbeat.LastBeat();
    }
    Signal("beating");
    ASSERT_TRUE(Await("shut down"));
    constexpr uint32_t severalBeats = 200; // milliseconds
    const uint64_t atTheEnd = heartbeat.LastBeat();
    EXPECT_GE(atTheEnd, last) << "Nothing clears the section.";
    EXPECT_FALSE(WaitUntil([&] { return heartbeat.LastBeat() != atTheEnd; }, severalBeats));
    ExitBeforeAgent();
}

#endif
