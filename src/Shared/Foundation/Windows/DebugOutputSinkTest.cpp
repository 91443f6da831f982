#include "Shared/Foundation/Windows/DebugOutputSink.h"

#include "Shared/Foundation/ThreadBuffers.h"
#include "tests/Support/FakeClock.h"

#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Texts = std::vector<std::string>;

/// Keeps the texts for the debugger.
class Debugger
{
public:
    const Texts& GetTexts() const
    {
        return texts;
    }

private:
    struct Output
    {
        Debugger& debugger;

        void operator()(decltype(&OutputDebugStringA), LPCSTR text) const
        {
            debugger.texts.emplace_back(text);
        }
    };

    Texts texts;
    FakeImport<Output> output{"OutputDebugStringA", Output{*this}};
};

class DebugOutputSinkTest : public testing::Test
{
protected:
    void LogEveryLevel()
    {
        sink.Debug("(ALL) ", "text", 4, "Agent.cpp", 1, 0);
        sink.Success("(ALL) ", "text", 4, "Agent.cpp", 1, 0);
        sink.Info("(ALL) ", 7, "text", 4, "Agent.cpp", 1, 0);
        sink.Warning("(ALL) ", "text", 4, "Agent.cpp", 1, 0);
        sink.Error("(ALL) ", "text", 4, "Agent.cpp", 1, 0);
        sink.Panic("(ALL) ", "text", 4, "Agent.cpp", 1, 0);
        sink.Reserved();
    }

    FakeClock clock{12347, 1000};
    DebugOutputSink sink{255};
    Debugger debugger;
};

const Texts everyLevel = {
    "[    12.35 Torvane Success] text\r\n", "[    12.35 Torvane Info   ] text\r\n",
    "[    12.35 Torvane Warning] text\r\n", "[    12.35 Torvane Error  ] text\r\n",
    "[    12.35 Torvane Panic  ] text\r\n",
};
} // namespace

TEST_F(DebugOutputSinkTest, WritesEveryLevelButDebug)
{
    LogEveryLevel();
    EXPECT_EQ(debugger.GetTexts(), everyLevel);
}

TEST_F(DebugOutputSinkTest, NeverWritesDebugWhateverTheMask)
{
    sink.SetLevelMask(UINT32_MAX);
    LogEveryLevel();
    EXPECT_EQ(debugger.GetTexts(), everyLevel);
}

TEST_F(DebugOutputSinkTest, LetsEachBitThroughItsOwnLevel)
{
    for (uint32_t level = 0; level < everyLevel.size(); ++level)
    {
        const size_t before = debugger.GetTexts().size();
        sink.SetLevelMask(1u << level);
        LogEveryLevel();
        ASSERT_EQ(debugger.GetTexts().size(), before + 1) << "bit " << level;
        EXPECT_EQ(debugger.GetTexts().back(), everyLevel[level]);
    }
}

TEST_F(DebugOutputSinkTest, WritesNothingWithoutAnyOfItsBits)
{
    for (const uint32_t mask : {0u, 0xFFFFFFE0u})
    {
        sink.SetLevelMask(mask);
        LogEveryLevel();
        EXPECT_EQ(debugger.GetTexts(), Texts()) << "mask " << mask;
    }
}

TEST_F(DebugOutputSinkTest, WritesNoMoreThanTheLengthOfAText)
{
    sink.Error("(ALL) ", "message and more", 7, "Agent.cpp", 1, 0);
    EXPECT_EQ(debugger.GetTexts(), Texts({"[    12.35 Torvane Error  ] message\r\n"}));
}

TEST_F(DebugOutputSinkTest, IgnoresThatATextIsSeparate)
{
    sink.Error("(ALL) ", "text", 4, "Agent.cpp", 1, 1);
    EXPECT_EQ(debugger.GetTexts(), Texts({"[    12.35 Torvane Error  ] text\r\n"}));
}

TEST_F(DebugOutputSinkTest, WritesTheLongestMessageAsAWhole)
{
    const std::string message(messageBufferSize - 1, 'm');
    sink.Error("(ALL) ", message.c_str(), messageBufferSize, "Agent.cpp", 1, 0);
    EXPECT_EQ(debugger.GetTexts(), Texts({"[    12.35 Torvane Error  ] " + message + "\r\n"}));
}

TEST_F(DebugOutputSinkTest, CutsARecordThatOutgrowsItsBuffer)
{
    const std::string tooLong(2 * debuggerLineBufferSize, 'm');
    sink.Error("(ALL) ", tooLong.data(), static_cast<uint32_t>(tooLong.size()), "Agent.cpp", 1, 0);
    EXPECT_EQ(debugger.GetTexts(),
              Texts({"[    12.35 Torvane Error  ] " + tooLong.substr(0, debuggerLineBufferSize - 1 - 28)}));
}

TEST_F(DebugOutputSinkTest, ReadsNoTimeForWhatTheMaskHoldsBack)
{
    const uint32_t reads = clock.GetCounterReads();
    sink.SetLevelMask(0);
    LogEveryLevel();
    EXPECT_EQ(clock.GetCounterReads(), reads);
}
} // namespace Torvane::Testing
