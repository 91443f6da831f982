#include "Shared/Foundation/Windows/Log.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/Foundation/ThreadBuffers.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/TestThread.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
/// The blocks of thread-local storage of this thread, one for each image. It's the 12th word of the thread's block.
uint8_t** GetThreadStorageBlocks()
{
    return reinterpret_cast<uint8_t**>(__readfsdword(0x2C));
}

/// The published directory of thread-local storage in an image.
const IMAGE_TLS_DIRECTORY& GetStorageDirectory()
{
    auto* image = reinterpret_cast<uint8_t*>(GetModuleHandleW(nullptr));
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
    const auto& entry = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_TLS];
    return *reinterpret_cast<const IMAGE_TLS_DIRECTORY*>(image + entry.VirtualAddress);
}

void ExpectInNativeStorage(const char* buffer, uint32_t size)
{
    const IMAGE_TLS_DIRECTORY& directory = GetStorageDirectory();
    const DWORD index = *reinterpret_cast<const DWORD*>(directory.AddressOfIndex);
    const DWORD blockSize =
        directory.EndAddressOfRawData - directory.StartAddressOfRawData + directory.SizeOfZeroFill;
    const uint8_t* block = GetThreadStorageBlocks()[index];
    const auto* bytes = reinterpret_cast<const uint8_t*>(buffer);
    EXPECT_GE(bytes, block);
    EXPECT_LE(bytes + size, block + blockSize);
}

/// A log in a file, silent to the debugger.
class LogTest : public testing::Test
{
protected:
    LogTest()
        : before(GetCurrentLogger())
    {
        SetDebugOutputLevelMask(0);
        StartupLog(file.Release());
    }

    ~LogTest() override
    {
        ShutdownLog();
        SetCurrentLogger(before);
    }

    LogFile file;

private:
    Logger* before;
};

size_t CountOf(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    {
        ++count;
    }
    return count;
}

/// Whether the bytes are records of these threads only, each of them whole.
void ExpectWholeRecords(const std::string& bytes, uint32_t threads, uint32_t recordsOfEach,
                        size_t messageLength)
{
    size_t start = 0;
    std::vector<uint32_t> next(threads);
    while (start < bytes.size())
    {
        const size_t message = bytes.find("(1) | ", start) + 6;
        ASSERT_LE(message + messageLength, bytes.size());
        const auto thread = static_cast<uint32_t>(bytes[message] - 'a');
        ASSERT_LT(thread, threads);
        const std::string number = std::to_string(next[thread]++) + ".";
        EXPECT_EQ(bytes.substr(message, messageLength),
                  std::string(messageLength - number.size(), static_cast<char>('a' + thread)) + number);
        start = message + messageLength;
    }
    EXPECT_EQ(next, std::vector<uint32_t>(threads, recordsOfEach));
}
} // namespace

TEST_F(LogTest, StartsWithAnEmptyLineAndEndsWithoutABreak)
{
    LogDebug("Agent.cpp", 1, "first");
    LogError("Agent.cpp", 2, "last");
    const std::string bytes = file.Read();
    EXPECT_EQ(bytes.substr(0, 2), "\r\n");
    EXPECT_EQ(CountOf(bytes, "\r\n"), 2u);
    EXPECT_EQ(bytes.substr(bytes.size() - 7), " | last");
}

TEST_F(LogTest, TakesAllLevelsIntoTheFileWithAMaskOf0)
{
    LogDebug("Agent.cpp", 1, "text");
    LogSuccess("Agent.cpp", 1, "text");
    LogInfo(0, "Agent.cpp", 1, "text");
    GetCurrentLogger()->Warning("", "text", 4, "Agent.cpp", 1, 0);
    LogError("Agent.cpp", 1, "text");
    LogPanic("Agent.cpp", 1, "text");
    const std::string bytes = file.Read();
    for (const char* tag : {" | DBG | ", " | SCS | ", " | INF | ", " | WRN | ", " | ERR | ", " | PNC | "})
    {
        EXPECT_EQ(CountOf(bytes, tag), 1u) << tag;
    }
}

TEST_F(LogTest, KeepsRecordsOfManyThreadsWhole)
{
    constexpr uint32_t threads = 8;
    constexpr uint32_t recordsOfEach = 100;
    constexpr size_t messageLength = 3000;
    {
        std::vector<std::unique_ptr<TestThread>> running;
        for (uint32_t thread = 0; thread < threads; ++thread)
        {
            running.push_back(std::make_unique<TestThread>([thread] {
                for (uint32_t i = 0; i < recordsOfEach; ++i)
                {
                    const std::string number = std::to_string(i) + ".";
                    const std::string text(messageLength - number.size(), static_cast<char>('a' + thread));
                    LogDebug("Agent.cpp", 1, "%hs%u.", text.c_str(), i);
                }
            }));
        }
    }
    ExpectWholeRecords(file.Read(), threads, recordsOfEach, messageLength);
}

TEST_F(LogTest, WritesWhileAnotherThreadHoldsTheProcessHeap)
{
    enum Stage
    {
        Begun,
        Held,
        Logged
    };
    std::atomic<int> stage = -1;
    const FakeImport output("OutputDebugStringA", [](decltype(&OutputDebugStringA), LPCSTR) {});
    SetDebugOutputLevelMask(255);
    {
        // The start and the end of a thread need the heap themselves.
        const TestThread logging([&stage] {
            stage = Begun;
            WaitUntil([&stage] { return stage == Held; });
            LogDebug("Agent.cpp", 1, "%hs %ls %u %p %9.2f", "a", L"\x20AC", 1u, nullptr, 2.5);
            LogInfo(0, "Agent.cpp", 1, "text");
            LogError("Agent.cpp", 1, "text");
            LogPanic("Agent.cpp", 1, "text");
            stage = Logged;
        });
        ASSERT_TRUE(WaitUntil([&stage] { return stage == Begun; }));
        HeapLock(GetProcessHeap());
        stage = Held;
        const bool logged = WaitUntil([&stage] { return stage == Logged; });
        HeapUnlock(GetProcessHeap());
        EXPECT_TRUE(logged);
    }
    EXPECT_EQ(CountOf(file.Read(), "Agent.cpp(1) | "), 4u);
}

TEST(Log, WritesToTheDebuggerAloneWithoutAFile)
{
    Logger* before = GetCurrentLogger();
    std::vector<std::string> texts;
    const FakeImport output("OutputDebugStringA",
                            [&](decltype(&OutputDebugStringA), LPCSTR text) { texts.emplace_back(text); });
    SetDebugOutputLevelMask(0x08);
    StartupLog(INVALID_HANDLE_VALUE);
    LogDebug(TVN_HERE, "text");
    LogSuccess(TVN_HERE, "text");
    LogInfo(0, TVN_HERE, "text");
    LogError(TVN_HERE, "text");
    LogPanic(TVN_HERE, "text");
    ShutdownLog();
    SetCurrentLogger(before);
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_NE(texts[0].find(" Torvane Error  ] text\r\n"), std::string::npos);
}

TEST(Log, ClosesItsFileAfterItHasTakenTheLoggerAway)
{
    Logger* before = GetCurrentLogger();
    LogFile file;
    const HANDLE handle = file.Release();
    uint32_t closed = 0;
    const FakeImport close("CloseHandle", [&](decltype(&CloseHandle) real, HANDLE object) {
        if (object == handle)
        {
            ++closed;
            EXPECT_EQ(GetCurrentLogger(), nullptr);
        }
        return real(object);
    });
    StartupLog(handle);
    EXPECT_NE(GetCurrentLogger(), nullptr);
    ShutdownLog();
    EXPECT_EQ(closed, 1u);
    EXPECT_EQ(GetCurrentLogger(), nullptr);
    ShutdownLog();
    EXPECT_EQ(closed, 1u) << "the handle is the invalid one by now";
    SetCurrentLogger(before);
}

TEST(ThreadBuffers, LieInTheThreadsNativeStorage)
{
    const auto expectAll = [] {
        ExpectInNativeStorage(GetMessageBuffer(), messageBufferSize);
        ExpectInNativeStorage(GetFileLineBuffer(), fileLineBufferSize);
        ExpectInNativeStorage(GetDebuggerLineBuffer(), debuggerLineBufferSize);
    };
    expectAll();
    const TestThread other(expectAll);
}
} // namespace Torvane::Testing
