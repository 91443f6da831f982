#include "tools/blobs/Operations.h"

#include "tests/Support/WrittenRecording.h"

#include "gtest/gtest.h"

using namespace Torvane;
using namespace Torvane::Blobs;
using namespace Torvane::Testing;

namespace
{
/// Each span in a line: "track/lane+depth: name = result (first-last)".
std::vector<std::string> Lines(const Operations& operations)
{
    std::vector<std::string> lines;
    for (const Span& span : operations.spans)
    {
        lines.push_back(operations.tracks[span.track].name + "/" + std::to_string(span.lane) + "+" +
                        std::to_string(span.depth) + ": " + span.name + " = " + span.detail + " (" +
                        std::to_string(span.firstBlob) + "-" + std::to_string(span.lastBlob) + ")");
    }
    return lines;
}

std::vector<std::string> LinesOf(const TestRecording& recording)
{
    return Lines(FindOperations(recording.Get()));
}

using Strings = std::vector<std::string>;
} // namespace

TEST(Operations, AReloadContainsItsPhases)
{
    EXPECT_EQ(Strings({
                  "reload/0+0: reload 1 =  (4-12)",
                  "reload/0+1: consent =  (4-5)",
                  "reload/0+1: compile =  (5-6)",
                  "reload/0+1: load 1.dll = failed (6-7)",
                  "reload/0+1: refused =  (7-8)",
                  "reload/0+1: load 2.dll = loaded at 0x72340000 (8-9)",
                  "reload/0+1: install =  (9-12)",
                  "requests/0+0: read memory 0x00000007 =  (10-11)",
              }),
              LinesOf(ReloadRecording()));
}

TEST(Operations, ThreadsAreNamedAsRegistered)
{
    const Operations operations = FindOperations(ReloadRecording().Get());
    EXPECT_EQ("from the Agent (sender thread)", operations.tracks[0].name);
    EXPECT_EQ(11u, operations.tracks[0].threadId);
    EXPECT_EQ("to the Agent (receiver thread)", operations.tracks[1].name);
    EXPECT_EQ(12u, operations.tracks[1].threadId);
    EXPECT_EQ("watchdog", operations.tracks[2].name);
    EXPECT_EQ(14u, operations.tracks[2].threadId);
    EXPECT_EQ(std::vector<size_t>({1, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1}), operations.blobTracks);
}

TEST(Operations, ALatchLastsUntilAllItsModulesAreEnabled)
{
    const auto decrement = MakeNumberBlob(BlobType::DecrementLatch, 0x5000);
    TestRecording recording;
    recording.From(MakeEnableModules(2, 0x5000)).To(MakeNumberBlob(BlobType::DecrementLatch, 0x6000));
    recording.To(decrement).To(decrement).To(decrement);
    recording.From(MakeEnableModules(1, 0x5000)).From(MakeEnableModules(0, 0x7000));
    EXPECT_EQ(Strings({
                  "latches/0+0: latch 0x00005000 = 2 modules enabled (1-4)",
                  "latches/0+0: latch 0x00005000 = no end recorded (6-0)",
                  "latches/0+0: latch 0x00007000 = no modules (7-7)",
              }),
              LinesOf(recording));
}

TEST(Operations, ExceptionsAreOnTheThreadsThatFaulted)
{
    TestRecording recording;
    recording.From(MakeException(21, 0x100)).From(MakeException(22, 0x104));
    recording.To(MakeExceptionResult(0x104, 2)).To(MakeExceptionResult(0x100, 0));
    recording.From(MakeException(21, 0x108));
    EXPECT_EQ(Strings({
                  "exceptions of thread 21/0+0: exception 0xC0000005 (EXCEPTION_ACCESS_VIOLATION) = 0 "
                  "(continue search) "
                  "(1-4)",
                  "exceptions of thread 21/0+0: exception 0xC0000005 (EXCEPTION_ACCESS_VIOLATION) = no end "
                  "recorded (5-0)",
                  "exceptions of thread 22/0+0: exception 0xC0000005 (EXCEPTION_ACCESS_VIOLATION) = 2 (skip "
                  "instruction) "
                  "(2-3)",
              }),
              LinesOf(recording));
}

TEST(Operations, OverlappingSpansAreInDifferentLanes)
{
    TestRecording recording;
    recording.To(MakeEchoRequest(1)).To(MakeReadMemory({1}, 1)).To(MakeEchoRequest(1));
    recording.From(MakeNumberBlob(BlobType::EchoReply, 1)).From(MakeReadMemoryResult({0, 0, 0, 0}, 1));
    recording.From(MakeNumberBlob(BlobType::EchoReply, 1)).From(MakeNumberBlob(BlobType::EchoReply, 1));
    EXPECT_EQ(Strings({
                  "requests/0+0: echo 0x00000001 =  (1-4)",
                  "requests/1+0: read memory 0x00000001 =  (2-5)",
                  "requests/2+0: echo 0x00000001 =  (3-6)",
              }),
              LinesOf(recording));
}

TEST(Operations, RestartsAndResumedThreadsAreOperations)
{
    TestRecording recording;
    recording.From(MakeUnwritten(BlobType::ResumeHeldThreads))
        .From(MakeUnwritten(BlobType::SuspendHeldThreads));
    recording.From(MakeProcessBlob(BlobType::ScheduleRestart, 0)).To(MakeEmpty(BlobType::RequestRestart));
    const std::vector<uint8_t> restart(sizeof(RestartBlob));
    recording.From(Bridge::MakeBlob(BlobType::Restart, restart.data(), restart.size()));
    recording.To(MakeNumberBlob(BlobType::ExitProcessForHotRestart, 0x44));
    EXPECT_EQ(Strings({
                  "watchdog/0+0: suspended threads resumed =  (1-2)",
                  "restart/0+0: restart =  (3-6)",
                  "restart/0+1: requested by the host =  (3-4)",
                  "restart/0+1: consent =  (4-5)",
                  "restart/0+1: new process =  (5-6)",
              }),
              LinesOf(recording));
}

TEST(Operations, EachHostHasItsOwnOperations)
{
    TestRecording recording;
    recording.To(MakeEchoRequest(1), 5).To(MakeEchoRequest(1), 6);
    recording.From(MakeNumberBlob(BlobType::EchoReply, 1), 6);
    const Operations operations = FindOperations(recording.Get());
    ASSERT_EQ(2u, operations.spans.size());
    EXPECT_EQ("requests/0+0: echo 0x00000001 = no end recorded (1-0)", Lines(operations)[0]);
    EXPECT_EQ("requests/0+0: echo 0x00000001 =  (2-3)", Lines(operations)[1]);
    EXPECT_EQ(6u, operations.tracks[operations.spans[1].track].hostProcessId);
}
