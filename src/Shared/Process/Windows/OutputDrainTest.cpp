#include "Shared/Process/Windows/Process.h"
#include "Shared/Process/Windows/Thread.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestMemorySystem.h"
#include "tests/Support/TestThread.h"

#include <algorithm>
#include <string.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

const Lines usualLines = {"DBG Thread 'Torvane stdout drain' started",
                          "DBG Thread 'Torvane stdout drain' exited with result 0"};

/// Writes to its standard output.
const ChildRole writer(L"drained writer", [](const wchar_t*) {
    const char bytes[] = "output of a child";
    DWORD count = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), bytes, sizeof(bytes) - 1, &count, nullptr);
});

/// Gives the drain a smaller part of the address space than it asks for: how much of it is free in one piece differs.
struct SmallerRange
{
    struct Allocate
    {
        uint32_t& gibibytes;

        LPVOID operator()(decltype(&VirtualAlloc) real, LPVOID address, SIZE_T size, DWORD type,
                          DWORD protection) const
        {
            if (size == 0x40000000)
            {
                ++gibibytes;
                return real(address, reservedSize, type, protection);
            }
            void* result = real(address, size, type, protection);
            SetLastError(ERROR_BROKEN_PIPE); // appending may leave any error
            return result;
        }
    };

    static constexpr uint32_t reservedSize = 0x100000;

    uint32_t gibibytes = 0; ///< how many were asked for
    FakeImport<Allocate> allocate{"VirtualAlloc", Allocate{gibibytes}};
};

/// A pipe whose read end is drained.
class OutputDrain : public testing::Test
{
protected:
    OutputDrain()
    {
        SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
        EXPECT_TRUE(CreatePipe(&readEnd, &writeEnd, &inheritable, 0));
        SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    }

    ~OutputDrain() override
    {
        CloseWriteEnd();
        CloseHandle(readEnd);
    }

    void CloseWriteEnd()
    {
        if (writeEnd != nullptr)
        {
            CloseHandle(writeEnd);
            writeEnd = nullptr;
        }
    }

    void Write(const std::string& bytes)
    {
        DWORD count = 0;
        EXPECT_TRUE(WriteFile(writeEnd, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr));
        EXPECT_EQ(count, bytes.size());
    }

    /// The drained process isn't there: its handles are null.
    SpawnedProcess StartDrain(uint32_t flags = SpawnDrainsOutput)
    {
        return MakeSpawnedProcess(readEnd, {}, flags);
    }

    static std::string GetOutput(const SpawnedProcess& process)
    {
        return std::string(reinterpret_cast<const char*>(process.output->range.base), process.output->count);
    }

    TestMemorySystem memory;
    SmallerRange smallerRange;
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    RecordedLog log;
};

/// Answers reads from the pipe, one after the other; the last answer for all that follow.
struct FakeRead
{
    struct Answer
    {
        BOOL result;
        DWORD error;
        std::string bytes;
    };

    struct Read
    {
        FakeRead& fake;

        BOOL operator()(decltype(&ReadFile), HANDLE pipe, LPVOID buffer, DWORD size, LPDWORD count,
                        LPOVERLAPPED overlapped) const
        {
            EXPECT_EQ(pipe, fake.pipe);
            EXPECT_EQ(size, 16384u);
            EXPECT_EQ(overlapped, nullptr);
            char* bytes = static_cast<char*>(buffer);
            EXPECT_EQ(std::count(bytes, bytes + size, '\0'), 16384);
            const size_t number = std::min(fake.calls, fake.answers.size() - 1);
            ++fake.calls;
            const Answer& answer = fake.answers[number];
            memcpy(bytes, answer.bytes.data(), answer.bytes.size());
            *count = static_cast<DWORD>(answer.bytes.size());
            SetLastError(answer.error);
            return answer.result;
        }
    };

    HANDLE pipe;
    std::vector<Answer> answers;
    size_t calls = 0;
    FakeImport<Read> read{"ReadFile", Read{*this}};
};
} // namespace

TEST_F(OutputDrain, OnlyTheBitForItStartsADrain)
{
    const PROCESS_INFORMATION information = {reinterpret_cast<HANDLE>(1), reinterpret_cast<HANDLE>(2), 3, 4};
    const SpawnedProcess process = MakeSpawnedProcess(readEnd, information, SpawnOfAgent);
    EXPECT_EQ(process.outputPipe, readEnd);
    EXPECT_EQ(memcmp(&process.information, &information, sizeof(information)), 0);
    EXPECT_EQ(process.drainThread, INVALID_HANDLE_VALUE);
    EXPECT_EQ(process.output, nullptr);
    EXPECT_EQ(process.outputBlockSize, 0u);
    EXPECT_EQ(process.flags, 2u);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(OutputDrain, AsksForAGibibyteAndCommitsNothingBeforeBytesCome)
{
    SpawnedProcess process = StartDrain(SpawnDrainsOutput | SpawnOfAgent);
    EXPECT_EQ(process.outputPipe, readEnd);
    EXPECT_EQ(process.flags, 3u);
    EXPECT_EQ(process.outputBlockSize, 24u);
    ASSERT_NE(process.output, nullptr);
    EXPECT_EQ(process.output->maximumCapacity, 0x40000000u);
    EXPECT_EQ(process.output->capacity, 0u);
    EXPECT_EQ(process.output->count, 0u);
    MEMORY_BASIC_INFORMATION range = {};
    VirtualQuery(process.output->range.base, &range, sizeof(range));
    EXPECT_EQ(range.State, static_cast<DWORD>(MEM_RESERVE));
    EXPECT_EQ(range.RegionSize, SmallerRange::reservedSize);
    EXPECT_EQ(smallerRange.gibibytes, 1u);
    CloseWriteEnd();
    WaitForThread(process.drainThread);
    ReleaseSpawnedProcess(process);
}

TEST_F(OutputDrain, EndsSilentlyWhenTheOtherEndOfThePipeCloses)
{
    SpawnedProcess process = StartDrain();
    Write("one ");
    Write("two");
    CloseWriteEnd();
    WaitForThread(process.drainThread);
    EXPECT_EQ(GetOutput(process), "one two");
    EXPECT_EQ(log.GetLines(), usualLines);
    ReleaseSpawnedProcess(process);
}

TEST_F(OutputDrain, ReadsTheOutputOfAChildToItsEnd)
{
    SpawnedProcess process = StartDrain();
    writer.Announce(L"any");
    wchar_t program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd;
    EXPECT_TRUE(CreateProcessW(program, nullptr, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                               &process.information));
    ChildRole::Withdraw();
    CloseWriteEnd();
    WaitForThread(process.drainThread);
    EXPECT_EQ(GetOutput(process), "output of a child");
    EXPECT_EQ(log.GetLines(), usualLines);
    ReleaseSpawnedProcess(process);
}

TEST_F(OutputDrain, KeepsMoreBytesThanOneReadTakesInTheirOrderAndPlace)
{
    SpawnedProcess process = StartDrain();
    const uint8_t* base = process.output->range.base;
    std::string bytes;
    for (uint32_t i = 0; i < 300000; ++i)
    {
        bytes.push_back(static_cast<char>(i % 251));
    }
    for (size_t offset = 0; offset < bytes.size(); offset += 30000)
    {
        Write(bytes.substr(offset, 30000));
    }
    CloseWriteEnd();
    WaitForThread(process.drainThread);
    EXPECT_EQ(process.output->range.base, base);
    EXPECT_TRUE(GetOutput(process) == bytes);
    ReleaseSpawnedProcess(process);
}

TEST_F(OutputDrain, EndsSilentlyWhenTheReadIsCancelled)
{
    SpawnedProcess process = StartDrain();
    EXPECT_TRUE(WaitUntil([&] { return CancelSynchronousIo(process.drainThread) != 0; }));
    WaitForThread(process.drainThread);
    EXPECT_EQ(GetOutput(process), "");
    EXPECT_EQ(log.GetLines(), usualLines);
    ReleaseSpawnedProcess(process);
}

TEST_F(OutputDrain, ContinuesAfterAReadOfNoBytes)
{
    FakeRead fake = {readEnd,
                     {{TRUE, ERROR_GEN_FAILURE, ""}, {TRUE, 0, "later"}, {FALSE, ERROR_BROKEN_PIPE, ""}}};
    SpawnedProcess process = StartDrain();
    WaitForThread(process.drainThread);
    EXPECT_EQ(fake.calls, 3u);
    EXPECT_EQ(GetOutput(process), "later");
    EXPECT_EQ(log.GetLines(), usualLines);
    ReleaseSpawnedProcess(process);
}

TEST_F(OutputDrain, TakesAWholeStepAtOnce)
{
    const std::string step(16384, 's');
    FakeRead fake = {readEnd, {{TRUE, 0, step}, {TRUE, 0, step}, {FALSE, ERROR_BROKEN_PIPE, ""}}};
    SpawnedProcess process = StartDrain();
    WaitForThread(process.drainThread);
    EXPECT_EQ(GetOutput(process), step + step);
    ReleaseSpawnedProcess(process);
}

TEST_F(OutputDrain, KeepsBytesThatComeWithAFailedRead)
{
    FakeRead fake = {readEnd, {{TRUE, 0, "one "}, {FALSE, ERROR_OPERATION_ABORTED, "two"}}};
    SpawnedProcess process = StartDrain();
    WaitForThread(process.drainThread);
    EXPECT_EQ(fake.calls, 2u);
    EXPECT_EQ(GetOutput(process), "one two");
    EXPECT_EQ(log.GetLines(), usualLines);
    ReleaseSpawnedProcess(process);
}

TEST_F(OutputDrain, LogsEveryOtherFailureWithTheErrorOfTheRead)
{
    FakeRead fake = {readEnd, {{FALSE, ERROR_NOT_ENOUGH_QUOTA, "kept"}}};
    SpawnedProcess process = StartDrain();
    WaitForThread(process.drainThread);
    EXPECT_EQ(GetOutput(process), "kept");
    EXPECT_EQ(log.GetLines(), Lines({usualLines[0], "ERR Cannot read from stdout pipe",
                                     OSErrorLine(ERROR_NOT_ENOUGH_QUOTA, "ERR"), usualLines[1]}));
    ReleaseSpawnedProcess(process);
}

TEST_F(OutputDrain, AHandleThatIsNoPipeIsLogged)
{
    SpawnedProcess process = MakeSpawnedProcess(reinterpret_cast<HANDLE>(0xABCDE0), {}, SpawnDrainsOutput);
    WaitForThread(process.drainThread);
    EXPECT_EQ(log.GetLines(), Lines({usualLines[0], "ERR Cannot read from stdout pipe",
                                     OSErrorLine(ERROR_INVALID_HANDLE, "ERR"), usualLines[1]}));
    ReleaseSpawnedProcess(process);
}

TEST_F(OutputDrain, ReleasingGivesTheOutputBackAndLeavesThePipe)
{
    SpawnedProcess process = StartDrain();
    Write("bytes");
    CloseWriteEnd();
    WaitForThread(process.drainThread);
    void* block = process.output;
    const void* base = process.output->range.base;
    ReleaseSpawnedProcess(process);
    EXPECT_EQ(process.output, nullptr);
    MEMORY_BASIC_INFORMATION range = {};
    VirtualQuery(base, &range, sizeof(range));
    EXPECT_EQ(range.State, static_cast<DWORD>(MEM_FREE));
    DWORD flags = 0;
    EXPECT_TRUE(GetHandleInformation(readEnd, &flags));

    const Allocation next = Allocate(24);
    EXPECT_EQ(next.pointer, block);
    Free(next.pointer, next.size);
}

TEST_F(OutputDrain, ADrainThatCannotStartLeavesTheHandleZero)
{
    FakeImport begin("_beginthreadex",
                     [](decltype(&_beginthreadex), void*, unsigned size, _beginthreadex_proc_type, void*,
                        unsigned, unsigned*) -> uintptr_t {
                         EXPECT_EQ(size, 16384u);
                         SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                         return 0;
                     });
    SpawnedProcess process = StartDrain();
    EXPECT_EQ(process.drainThread, nullptr);
    EXPECT_NE(process.output, nullptr);
    EXPECT_EQ(log.GetLines(),
              Lines({"ERR Failed to create thread", OSErrorLine(ERROR_NOT_ENOUGH_MEMORY, "ERR")}));
    ReleaseSpawnedProcess(process);
}
} // namespace Torvane::Testing
