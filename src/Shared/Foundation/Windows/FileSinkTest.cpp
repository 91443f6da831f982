#include "Shared/Foundation/Windows/FileSink.h"

#include "Shared/Foundation/ThreadBuffers.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/RecordedLog.h"

#include <functional>
#include <string.h>
#include <string>
#include <utility>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

/// Bytes of a record up to its position.
constexpr DWORD beforeText = 2 + 9 + 3 + 3 + 3 + 43;

/// Keeps the size of each write to a file, and lets some fail.
class WriteJournal
{
public:
    using Condition = std::function<bool(size_t number, DWORD size)>;

    /// \param condition whether a write fails; they are numbered from 0 on.
    explicit WriteJournal(Condition condition = [](size_t, DWORD) { return false; })
        : fails(std::move(condition))
    {
    }

    explicit WriteJournal(size_t failingWrite)
        : WriteJournal([failingWrite](size_t number, DWORD) { return number == failingWrite; })
    {
    }

    const std::vector<DWORD>& GetSizes() const
    {
        return sizes;
    }

private:
    struct Write
    {
        WriteJournal& journal;

        BOOL operator()(decltype(&WriteFile) real, HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written,
                        LPOVERLAPPED overlapped) const
        {
            journal.sizes.push_back(size);
            if (!journal.fails(journal.sizes.size() - 1, size))
            {
                return real(file, bytes, size, written, overlapped);
            }
            SetLastError(ERROR_DISK_FULL);
            return FALSE;
        }
    };

    Condition fails;
    std::vector<DWORD> sizes;
    FakeImport<Write> write{"WriteFile", Write{*this}};
};

/// 12.345 seconds after the origin, whose second decimal is a 5 rounded from below.
class FileSinkTest : public testing::Test
{
protected:
    void Error(const std::string& text, const char* source, int32_t line, uint32_t separateText = 0)
    {
        sink.Error("(ALL) ", text.data(), static_cast<uint32_t>(text.size()), source, line, separateText);
    }

    FakeClock clock{12347, 1000};
    LogFile file;
    FileSink sink{file.Get()};
};

std::string Blanks(size_t count)
{
    return std::string(count, ' ');
}
} // namespace

TEST_F(FileSinkTest, WritesEveryLevelUnderItsTag)
{
    sink.Debug("(ALL) ", "API", 3, "Agent.cpp", 1, 0);
    sink.Success("(ALL) ", "API", 3, "Agent.cpp", 22, 0);
    sink.Info("(ALL) ", 7, "API", 3, "Agent.cpp", 333, 0);
    sink.Warning("(ALL) ", "API", 3, "Agent.cpp", 4444, 0);
    sink.Error("(ALL) ", "API", 3, "Agent.cpp", 55555, 0);
    sink.Panic("(ALL) ", "API", 3, "Agent.cpp", -6, 0);
    sink.Reserved();
    EXPECT_EQ(file.Read(), "\r\n    12.35 | DBG |                                Agent.cpp(1) | API"
                           "\r\n    12.35 | SCS |                               Agent.cpp(22) | API"
                           "\r\n    12.35 | INF |                              Agent.cpp(333) | API"
                           "\r\n    12.35 | WRN |                             Agent.cpp(4444) | API"
                           "\r\n    12.35 | ERR |                            Agent.cpp(55555) | API"
                           "\r\n    12.35 | PNC |                               Agent.cpp(-6) | API");
}

TEST_F(FileSinkTest, WritesTimesThatOutgrowTheirColumns)
{
    clock.Set(9999999994);
    Error("x", "a", 1);
    EXPECT_EQ(file.Read(), "\r\n9999999.99 | ERR | " + Blanks(39) + "a(1) | x");
}

TEST_F(FileSinkTest, WritesARecordAtOnceWithoutAnEndOfItsOwn)
{
    const WriteJournal writes;
    Error("message", "Agent.cpp", 1);
    EXPECT_EQ(writes.GetSizes(), std::vector<DWORD>({beforeText + 3 + 7}));
    EXPECT_EQ(file.Read().substr(beforeText), " | message"); // at once: nothing is buffered
}

TEST_F(FileSinkTest, WritesNoMoreThanTheLengthOfAText)
{
    sink.Error("(ALL) ", "message and more", 7, "Agent.cpp", 1, 0);
    EXPECT_EQ(file.Read().substr(beforeText), " | message");
}

TEST_F(FileSinkTest, TakesTheTextAsItIs)
{
    Error("100% %hs\r\n\xC3\xA4", "Agent.cpp", 1);
    EXPECT_EQ(file.Read().substr(beforeText), " | 100% %hs\r\n\xC3\xA4");
}

TEST_F(FileSinkTest, EndsTheTextAtATerminatorWithinItsLength)
{
    Error(std::string("abc\0def", 7), "Agent.cpp", 1);
    EXPECT_EQ(file.Read().substr(beforeText), " | abc");
}

TEST_F(FileSinkTest, WritesASeparateTextAfterTheRecordUnformatted)
{
    const WriteJournal writes;
    Error(std::string("abc\0%hs", 7), "Agent.cpp", 1, 1);
    EXPECT_EQ(file.Read(), "\r\n    12.35 | ERR |                                Agent.cpp(1)\r\n" +
                               std::string("abc\0%hs", 7));
    EXPECT_EQ(writes.GetSizes(), std::vector<DWORD>({65, 7}));
}

TEST_F(FileSinkTest, SeparatesTheTextAtTheValue1Alone)
{
    Error("message", "Agent.cpp", 1, 2);
    EXPECT_EQ(file.Read().substr(beforeText), " | message");
}

TEST_F(FileSinkTest, PadsPositionsOnTheLeftTo43Columns)
{
    Error("x", std::string(40, 'p').c_str(), 1);
    Error("x", std::string(39, 'p').c_str(), 1);
    Error("x", std::string(41, 'p').c_str(), 1);
    EXPECT_EQ(file.Read(), "\r\n    12.35 | ERR | " + std::string(40, 'p') + "(1) | x" +
                               "\r\n    12.35 | ERR |  " + std::string(39, 'p') + "(1) | x" +
                               "\r\n    12.35 | ERR | " + std::string(41, 'p') + "(1) | x");
}

TEST_F(FileSinkTest, CutsAPositionThatFillsItsText)
{
    Error("x", std::string(1020, 'p').c_str(), 1);
    Error("x", std::string(1021, 'q').c_str(), 1);
    Error("x", std::string(3000, 'r').c_str(), 1);
    EXPECT_EQ(file.Read(), "\r\n    12.35 | ERR | " + std::string(1020, 'p') + "(1) | x" +
                               "\r\n    12.35 | ERR | " + std::string(1021, 'q') + "(1 | x" +
                               "\r\n    12.35 | ERR | " + std::string(1023, 'r') + " | x");
}

TEST_F(FileSinkTest, WritesTheLongestMessageWithTheLongestPosition)
{
    const std::string message(messageBufferSize - 1, 'm');
    Error(message, std::string(3000, 'r').c_str(), 1);
    EXPECT_EQ(file.Read(), "\r\n    12.35 | ERR | " + std::string(1023, 'r') + " | " + message);
}

TEST_F(FileSinkTest, WritesTheWholeBufferWhenARecordIsCut)
{
    const WriteJournal writes;
    const std::string tooLong(2 * fileLineBufferSize, 'm');
    Error(tooLong, "Agent.cpp", 1);
    EXPECT_EQ(writes.GetSizes(), std::vector<DWORD>({33920}));
    EXPECT_EQ(file.Read().substr(beforeText + 3), tooLong.substr(0, 33920 - 1 - beforeText - 3) + '\0');
}

TEST_F(FileSinkTest, GetsWholeMessagesOf32767CharactersAndCutsLongerOnes)
{
    Logger* before = GetCurrentLogger();
    SetCurrentLogger(&sink);
    const std::string exact(32767, 'e');
    const std::string tooLong(40000, 't');
    LogDebug("Agent.cpp", 1, "%hs", exact.c_str());
    LogDebug("Agent.cpp", 2, "%hs", tooLong.c_str());
    LogDebug("Agent.cpp", 3, "last");
    SetCurrentLogger(before);
    const std::string start = "\r\n    12.35 | DBG | " + Blanks(31) + "Agent.cpp(";
    EXPECT_EQ(file.Read(),
              start + "1) | " + exact + start + "2) | " + tooLong.substr(0, 32767) + start + "3) | last");
}

TEST_F(FileSinkTest, DoesNothingAtAllWithoutAFile)
{
    const RecordedLog log;
    const WriteJournal writes;
    const uint32_t reads = clock.GetCounterReads();
    sink.SetFile(INVALID_HANDLE_VALUE);
    SetLastError(1234);
    sink.Debug("", "x", 1, "Agent.cpp", 1, 0);
    sink.Success("", "x", 1, "Agent.cpp", 1, 0);
    sink.Info("", 0, "x", 1, "Agent.cpp", 1, 0);
    sink.Warning("", "x", 1, "Agent.cpp", 1, 0);
    sink.Error("", "x", 1, "Agent.cpp", 1, 1);
    sink.Panic("", "x", 1, "Agent.cpp", 1, 0);
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_TRUE(writes.GetSizes().empty());
    EXPECT_EQ(clock.GetCounterReads(), reads);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(FileSinkTest, ReportsAFailedWriteThroughTheLog)
{
    const RecordedLog log;
    const WriteJournal writes(size_t{0});
    Error("lost", "Agent.cpp", 1);
    Error("kept", "Agent.cpp", 1);
    EXPECT_EQ(log.GetLines(), Lines({"DBG Cannot write to file.", OSErrorLine(ERROR_DISK_FULL)}));
    EXPECT_EQ(file.Read().substr(beforeText), " | kept");
}

TEST_F(FileSinkTest, LosesTheFailedRecordAloneWhenItIsTheLogItself)
{
    Logger* before = GetCurrentLogger();
    SetCurrentLogger(&sink);
    {
        const WriteJournal writes(size_t{0});
        LogError("Agent.cpp", 1, "lost");
        LogError("Agent.cpp", 1, "kept");
    }
    SetCurrentLogger(before);
    const std::string bytes = file.Read();
    EXPECT_EQ(bytes.find("lost"), std::string::npos);
    const size_t report = bytes.find(" | Cannot write to file.\r\n    12.35 | DBG | ");
    const size_t kept = bytes.find("Agent.cpp(1) | kept");
    EXPECT_NE(report, std::string::npos);
    EXPECT_NE(kept, std::string::npos);
    EXPECT_LT(report, kept);
}

TEST_F(FileSinkTest, ReportsFailingWritesOnceUntilOneSucceeds)
{
    const RecordedLog log;
    const WriteJournal writes([](size_t number, DWORD) { return number != 3; });
    const Lines report = {"DBG Cannot write to file.", OSErrorLine(ERROR_DISK_FULL)};
    for (int i = 0; i < 3; ++i)
    {
        Error("lost", "Agent.cpp", 1);
        EXPECT_EQ(log.GetLines(), report);
    }
    Error("kept", "Agent.cpp", 1);
    EXPECT_EQ(file.Read().substr(beforeText), " | kept");
    EXPECT_EQ(log.GetLines(), report);
    Error("lost", "Agent.cpp", 1);
    Error("lost", "Agent.cpp", 1);
    EXPECT_EQ(log.GetLines(), Lines({report[0], report[1], report[0], report[1]}));
}

/// A failed write in a log that is the file itself.
class FailingFileSinkTest : public FileSinkTest
{
protected:
    FailingFileSinkTest()
        : before(GetCurrentLogger())
    {
        SetCurrentLogger(&sink);
    }

    ~FailingFileSinkTest() override
    {
        SetCurrentLogger(before);
    }

private:
    Logger* before;
};

TEST_F(FailingFileSinkTest, TriesTheRecordAndTheTwoLinesOfOneReport)
{
    const WriteJournal writes([](size_t, DWORD) { return true; });
    LogError("Agent.cpp", 1, "lost");
    EXPECT_EQ(writes.GetSizes().size(), 3u);
    LogError("Agent.cpp", 1, "lost");
    LogError("Agent.cpp", 1, "lost");
    EXPECT_EQ(writes.GetSizes().size(), 5u);
    EXPECT_EQ(file.Read(), "");
}

TEST_F(FailingFileSinkTest, ContinuesWithTheFirstRecordThatCanBeWritten)
{
    {
        const WriteJournal writes([](size_t, DWORD) { return true; });
        LogError("Agent.cpp", 1, "lost");
    }
    LogError("Agent.cpp", 1, "kept");
    EXPECT_EQ(file.Read().substr(beforeText), " | kept");
}

/// As on a nearly full disk, where what is short still finds room.
TEST_F(FailingFileSinkTest, ReportsOnceWhereOnlyTheFirstLineOfAReportCanBeWritten)
{
    const size_t shortest = beforeText + strlen(" | Cannot write to file.");
    const WriteJournal writes([shortest](size_t, DWORD size) { return size > shortest; });
    LogError("Agent.cpp", 1, "%hs", std::string(100, 'm').c_str());
    EXPECT_EQ(writes.GetSizes().size(), 3u);
    const std::string bytes = file.Read();
    EXPECT_EQ(bytes.size(), shortest);
    EXPECT_EQ(bytes.substr(beforeText), " | Cannot write to file.");
}

TEST_F(FileSinkTest, WritesASeparateTextEvenWhenItsRecordFailed)
{
    const RecordedLog log;
    const WriteJournal writes(size_t{0});
    Error("text", "Agent.cpp", 1, 1);
    EXPECT_EQ(file.Read(), "text");
    EXPECT_EQ(log.GetCalls().size(), 2u);
}
} // namespace Torvane::Testing
