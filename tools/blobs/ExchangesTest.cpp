#include "tools/blobs/Exchanges.h"

#include "tests/Support/WrittenRecording.h"

#include "gtest/gtest.h"

using namespace Torvane;
using namespace Torvane::Blobs;
using namespace Torvane::Testing;

namespace
{
/// The exchanges as "question-answer", by the numbers of the Blobs.
std::vector<std::string> ExchangesIn(const TestRecording& recording)
{
    std::vector<std::string> exchanges;
    for (const Exchange& exchange : FindExchanges(recording.Get(), FindOperations(recording.Get())))
    {
        exchanges.push_back(std::to_string(exchange.question + 1) + "-" +
                            std::to_string(exchange.answer + 1));
    }
    return exchanges;
}

using Strings = std::vector<std::string>;

Failure FailureOfOnly(std::vector<uint8_t> bytes)
{
    return FailureOf(TestRecording().From(std::move(bytes)).Get().blobs[0]);
}
} // namespace

TEST(Exchanges, AReloadHasThoseOfItsPhases)
{
    // Consent, a patch that isn't loaded, one that is, a read.
    EXPECT_EQ(Strings({"4-5", "6-7", "8-9", "10-11"}), ExchangesIn(ReloadRecording()));
}

TEST(Exchanges, AnswersBelongToTheirQuestionsInAnyOrder)
{
    TestRecording recording;
    recording.To(MakeEchoRequest(1)).To(MakeReadMemory({1}, 1)).To(MakeEchoRequest(2));
    recording.From(MakeNumberBlob(BlobType::EchoReply, 2)).From(MakeReadMemoryResult({0, 0, 0, 0}, 1));
    recording.From(MakeNumberBlob(BlobType::EchoReply, 1)).To(MakeEchoRequest(3));
    EXPECT_EQ(Strings({"1-6", "2-5", "3-4"}), ExchangesIn(recording));
}

TEST(Exchanges, ExceptionsLatchesAndRestartsAreAnswered)
{
    TestRecording recording;
    recording.From(MakeException(21, 0x100)).To(MakeExceptionResult(0x100, 2));
    recording.From(MakeEnableModules(2, 0x5000));
    recording.To(MakeNumberBlob(BlobType::DecrementLatch, 0x5000))
        .To(MakeNumberBlob(BlobType::DecrementLatch, 0x5000));
    recording.To(MakeEmpty(BlobType::RequestRestart));
    const std::vector<uint8_t> restart(sizeof(RestartBlob));
    recording.From(Bridge::MakeBlob(BlobType::Restart, restart.data(), restart.size()));
    EXPECT_EQ(Strings({"1-2", "3-5", "6-7"}), ExchangesIn(recording));
}

TEST(Exchanges, WhatEndsInAnotherWayIsNone)
{
    TestRecording recording;
    recording.To(MakeEmpty(BlobType::RequestReload)).To(MakeEmpty(BlobType::FinishAfterHotReload));
    recording.From(MakeUnwritten(BlobType::ResumeHeldThreads))
        .From(MakeUnwritten(BlobType::SuspendHeldThreads));
    recording.From(MakeEnableModules(0, 0x7000)).To(MakeEchoRequest(1));
    EXPECT_EQ(Strings(), ExchangesIn(recording));
}

TEST(Failures, AreErrorsExceptionsAndInvalidPayloads)
{
    EXPECT_EQ(Failure::None, FailureOfOnly(MakeLog(BlobLogLevel::Warning, "w")));
    EXPECT_EQ(Failure::LoggedError, FailureOfOnly(MakeLog(BlobLogLevel::Error, "e")));
    EXPECT_EQ(Failure::LoggedError, FailureOfOnly(MakeLog(BlobLogLevel::Panic, "p")));
    EXPECT_EQ(Failure::Exception, FailureOfOnly(MakeException(21, 0x100)));
    EXPECT_EQ(Failure::None, FailureOfOnly(MakeExceptionResult(0x100, 2)));
    EXPECT_EQ(Failure::InvalidPayload, FailureOfOnly(Bridge::MakeBlob(BlobType::LogNarrow, "\4", 1)));
    std::vector<uint8_t> modules = MakeEnableModules(1, 0x5000);
    modules.resize(modules.size() / 2);
    const uint32_t size = static_cast<uint32_t>(modules.size() - sizeof(BlobHeader));
    memcpy(modules.data(), &size, sizeof(size));
    EXPECT_EQ(Failure::InvalidPayload, FailureOfOnly(modules));
}
