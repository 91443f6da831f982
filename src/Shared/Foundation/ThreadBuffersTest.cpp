#include "Shared/Foundation/ThreadBuffers.h"

#include <gtest/gtest.h>
#include <string.h>
#ifdef _WIN32
#include "tests/Support/TestThread.h"
#else
#include <functional>
#include <thread>
#endif

namespace Torvane::Testing
{
namespace
{
#ifndef _WIN32
class TestThread
{
public:
    explicit TestThread(const std::function<void()>& body)
        : thread(body)
    {
    }

    ~TestThread()
    {
        thread.join();
    }

private:
    std::thread thread;
};
#endif

struct Buffers
{
    char* message;
    char* fileLine;
    char* debuggerLine;
};

Buffers GetBuffers()
{
    return {GetMessageBuffer(), GetFileLineBuffer(), GetDebuggerLineBuffer()};
}

void Fill(const Buffers& buffers, char character)
{
    memset(buffers.message, character, messageBufferSize);
    memset(buffers.fileLine, character, fileLineBufferSize);
    memset(buffers.debuggerLine, character, debuggerLineBufferSize);
}

void ExpectFilled(const char* buffer, uint32_t size, char character)
{
    for (uint32_t i = 0; i < size; ++i)
    {
        ASSERT_EQ(buffer[i], character) << "byte " << i << " of " << size;
    }
}

void ExpectFilled(const Buffers& buffers, char character)
{
    ExpectFilled(buffers.message, messageBufferSize, character);
    ExpectFilled(buffers.fileLine, fileLineBufferSize, character);
    ExpectFilled(buffers.debuggerLine, debuggerLineBufferSize, character);
}

bool Overlap(const char* first, uint32_t firstSize, const char* second, uint32_t secondSize)
{
    return first < second + secondSize && second < first + firstSize;
}
} // namespace

TEST(ThreadBuffers, HoldALineForEveryMessage)
{
    EXPECT_EQ(messageBufferSize, 32768u);
    EXPECT_EQ(fileLineBufferSize, 33920u);
    EXPECT_EQ(debuggerLineBufferSize, 32896u);
}

TEST(ThreadBuffers, AreThreeThatStay)
{
    const Buffers buffers = GetBuffers();
    EXPECT_FALSE(Overlap(buffers.message, messageBufferSize, buffers.fileLine, fileLineBufferSize));
    EXPECT_FALSE(Overlap(buffers.message, messageBufferSize, buffers.debuggerLine, debuggerLineBufferSize));
    EXPECT_FALSE(Overlap(buffers.fileLine, fileLineBufferSize, buffers.debuggerLine, debuggerLineBufferSize));
    const Buffers again = GetBuffers();
    EXPECT_EQ(again.message, buffers.message);
    EXPECT_EQ(again.fileLine, buffers.fileLine);
    EXPECT_EQ(again.debuggerLine, buffers.debuggerLine);
}

TEST(ThreadBuffers, AreEachThreadsOwn)
{
    const Buffers ours = GetBuffers();
    Fill(ours, 'a');
    {
        const TestThread other([&ours] {
            const Buffers theirs = GetBuffers();
            EXPECT_NE(theirs.message, ours.message);
            EXPECT_NE(theirs.fileLine, ours.fileLine);
            EXPECT_NE(theirs.debuggerLine, ours.debuggerLine);
            ExpectFilled(theirs, 0);
            Fill(theirs, 'b');
        });
    }
    ExpectFilled(ours, 'a');
}
} // namespace Torvane::Testing
