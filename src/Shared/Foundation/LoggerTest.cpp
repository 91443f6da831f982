#include "Shared/Foundation/Logger.h"

#include "Shared/Foundation/ThreadBuffers.h"
#include "tests/Support/RecordedLog.h"

#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
/// Place of a virtual operation in the table. By the C++ ABI in use, a pointer to it holds the offset, and one more.
template<typename Operation>
size_t SlotOf(Operation operation)
{
    ptrdiff_t word = 0;
    memcpy(&word, &operation, sizeof(word));
    return static_cast<size_t>(word - 1) / sizeof(void*);
}

/// The one call that was logged.
LogCall Only(const RecordedLog& log)
{
    EXPECT_EQ(log.GetCalls().size(), 1u);
    return log.GetCalls().empty() ? LogCall() : log.GetCalls().front();
}

void ExpectCall(const LogCall& call, const char* level, const std::string& text, const char* file,
                int32_t line)
{
    EXPECT_EQ(call.level, level);
    EXPECT_EQ(call.bytes, text);
    EXPECT_EQ(call.file, file);
    EXPECT_EQ(call.line, line);
    EXPECT_EQ(call.number, 0);
    EXPECT_EQ(call.separateText, 0u);
}
} // namespace

TEST(Logger, HasItsSevenOperationsInThisOrder)
{
    EXPECT_EQ(SlotOf(&Logger::Debug), 0u);
    EXPECT_EQ(SlotOf(&Logger::Success), 1u);
    EXPECT_EQ(SlotOf(&Logger::Info), 2u);
    EXPECT_EQ(SlotOf(&Logger::Warning), 3u);
    EXPECT_EQ(SlotOf(&Logger::Error), 4u);
    EXPECT_EQ(SlotOf(&Logger::Panic), 5u);
    EXPECT_EQ(SlotOf(&Logger::Reserved), 6u);
    EXPECT_EQ(sizeof(NullLogger), sizeof(void*)) << "nothing but the table";
}

TEST(Logger, TakesEachFrontEndAtItsOwnLevel)
{
    struct FrontEnd
    {
        const char* level;
        void (*log)(const char* file, int32_t line, CheckedFormat<uint32_t, const char*> format,
                    uint32_t number, const char* string);
    };
    const FrontEnd frontEnds[] = {
        {"DBG", &LogDebug<uint32_t, const char*>},
        {"SCS", &LogSuccess<uint32_t, const char*>},
        {"ERR", &LogError<uint32_t, const char*>},
        {"PNC", &LogPanic<uint32_t, const char*>},
    };
    for (const FrontEnd& frontEnd : frontEnds)
    {
        const RecordedLog log;
        frontEnd.log("Sender.cpp", 12, "Pipe %u is %hs", 3u, "broken");
        ExpectCall(Only(log), frontEnd.level, "Pipe 3 is broken", "Sender.cpp", 12);
    }
    const RecordedLog log;
    LogInfo(0, "Sender.cpp", 12, "Pipe %u is %hs", 3u, "broken");
    ExpectCall(Only(log), "INF", "Pipe 3 is broken", "Sender.cpp", 12);
}

TEST(Logger, TakesALevelThatIsGivenAsAnArgument)
{
    struct Row
    {
        LogLevel level;
        const char* name;
    };
    for (const Row& row :
         {Row{LogLevel::Debug, "DBG"}, Row{LogLevel::Success, "SCS"}, Row{LogLevel::Info, "INF"},
          Row{LogLevel::Warning, "WRN"}, Row{LogLevel::Error, "ERR"}, Row{LogLevel::Panic, "PNC"}})
    {
        const RecordedLog log;
        Unchecked::Log(row.level, 0, "Sender.cpp", 12, "Pipe %u", 3u);
        ExpectCall(Only(log), row.name, "Pipe 3", "Sender.cpp", 12);
    }
}

TEST(Logger, GetsTheIntegerOfInfo)
{
    const RecordedLog log;
    LogInfo(-7, "Sender.cpp", 12, "text");
    EXPECT_EQ(Only(log).number, -7);
}

TEST(Logger, GetsTheSourceFilesBaseNameAndTheLine)
{
    const RecordedLog log;
    const int32_t line = __LINE__ + 1;
    LogDebug(TVN_HERE, "API");
    ExpectCall(Only(log), "DBG", "API", "LoggerTest.cpp", line);
}

TEST(Logger, GetsTheChannelOfAllUntilAnotherIsSet)
{
    const RecordedLog log;
    LogDebug(TVN_HERE, "before");
    SetLogChannel("(WIN) ");
    LogDebug(TVN_HERE, "after");
    LogInfo(0, TVN_HERE, "after");
    SetLogChannel(log.GetCalls().at(0).channel);
    EXPECT_STREQ(log.GetCalls().at(0).channel, "(ALL) ");
    EXPECT_STREQ(log.GetCalls().at(1).channel, "(WIN) ");
    EXPECT_STREQ(log.GetCalls().at(2).channel, "(WIN) ");
}

TEST(Logger, GetsTheTextInThisThreadsBuffer)
{
    const RecordedLog log;
    LogError(TVN_HERE, "text");
    EXPECT_EQ(Only(log).text, GetMessageBuffer());
}

TEST(Logger, GetsUtf16AsUtf8)
{
    const RecordedLog log;
    LogDebug(TVN_HERE, "Loading patch from %ls", L"C:\\\x00E4\\\xD83D\xDE00.dll");
    EXPECT_EQ(Only(log).bytes, "Loading patch from C:\\\xC3\xA4\\\xF0\x9F\x98\x80.dll");
}

TEST(Logger, GetsAnEmptyText)
{
    const RecordedLog log;
    LogDebug(TVN_HERE, "%hs", "");
    EXPECT_EQ(Only(log).length, 0u);
}

TEST(Logger, GetsAMessageThatJustFitsAsAWhole)
{
    const std::string longest(messageBufferSize - 1, 'm');
    const RecordedLog log;
    LogDebug(TVN_HERE, "%hs", longest.c_str());
    EXPECT_EQ(Only(log).length, 32767u);
    EXPECT_EQ(Only(log).bytes, longest);
}

TEST(Logger, GetsTheBuffersSizeAsTheLengthOfACutMessage)
{
    const std::string tooLong(messageBufferSize, 'm');
    const RecordedLog log;
    LogDebug(TVN_HERE, "%hs", tooLong.c_str());
    LogInfo(0, TVN_HERE, "%hs and more", tooLong.c_str());
    for (const LogCall& call : log.GetCalls())
    {
        EXPECT_EQ(call.length, 32768u);
        EXPECT_EQ(call.bytes, tooLong.substr(1) + '\0') << "the last of them is the terminator";
    }
}

TEST(Logger, ForgetsTheCutOfAnEarlierMessage)
{
    const std::string tooLong(messageBufferSize, 'm');
    const RecordedLog log;
    LogDebug(TVN_HERE, "%hs", tooLong.c_str());
    LogDebug(TVN_HERE, "short");
    EXPECT_EQ(log.GetCalls().at(1).bytes, "short");
}

namespace
{
/// Keeps the messages of all six operations.
class MessageKeeper final : public MessageLogger<MessageKeeper>
{
public:
    void Write(const LogMessage& message)
    {
        messages.push_back(message);
    }

    std::vector<LogMessage> messages;
};
} // namespace

TEST(MessageLogger, MakesOneOperationOfSix)
{
    static constexpr char text[] = "text";
    static constexpr char file[] = "Sender.cpp";
    MessageKeeper keeper;
    Logger& logger = keeper;
    logger.Debug("(ALL) ", text, 1, file, 11, 21);
    logger.Success("(ALL) ", text, 2, file, 12, 22);
    logger.Info("(ALL) ", 5, text, 3, file, 13, 23);
    logger.Warning("(ALL) ", text, 4, file, 14, 24);
    logger.Error("(ALL) ", text, 5, file, 15, 25);
    logger.Panic("(ALL) ", text, 6, file, 16, 26);
    logger.Reserved();
    ASSERT_EQ(keeper.messages.size(), 6u);
    for (uint32_t i = 0; i < 6; ++i)
    {
        const LogMessage& message = keeper.messages[i];
        EXPECT_EQ(static_cast<uint32_t>(message.level), i);
        EXPECT_EQ(message.text, text);
        EXPECT_EQ(message.length, i + 1);
        EXPECT_EQ(message.file, file);
        EXPECT_EQ(message.line, static_cast<int32_t>(i + 11));
        EXPECT_EQ(message.separateText, i + 21);
    }
}

TEST(NullLogger, DoesNothingWithWhatIsLogged)
{
    const RecordedLog outer;
    NullLogger nullLogger;
    SetCurrentLogger(&nullLogger);
    LogDebug(TVN_HERE, "%hs", "nowhere");
    LogSuccess(TVN_HERE, "nowhere");
    LogInfo(0, TVN_HERE, "nowhere");
    LogError(TVN_HERE, "nowhere");
    LogPanic(TVN_HERE, "nowhere");
    // Nothing of a message is looked at, and none shows anywhere.
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Logger& logger = *GetCurrentLogger();
    logger.Debug(nullptr, nullptr, UINT32_MAX, nullptr, 0, 1);
    logger.Success(nullptr, nullptr, UINT32_MAX, nullptr, 0, 1);
    logger.Info(nullptr, 0, nullptr, UINT32_MAX, nullptr, 0, 1);
    logger.Warning(nullptr, nullptr, UINT32_MAX, nullptr, 0, 1);
    logger.Error(nullptr, nullptr, UINT32_MAX, nullptr, 0, 1);
    logger.Panic(nullptr, nullptr, UINT32_MAX, nullptr, 0, 1);
    logger.Reserved();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(GetCurrentLogger(), &nullLogger);
    SetCurrentLogger(const_cast<RecordedLog*>(&outer));
    EXPECT_TRUE(outer.GetCalls().empty());
}
} // namespace Torvane::Testing
