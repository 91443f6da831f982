#include "Shared/Foundation/Result.h"

#include "tests/Support/RecordedLog.h"

#include <gtest/gtest.h>
#include <stddef.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

struct Record
{
    void* handle;
    uint32_t size;
};

Result<void*> FailToOpen(CheckedFormat<const wchar_t*> format)
{
    return MakeError(87, format, L"C:\\log.txt");
}
} // namespace

TEST(Result, IsTheErrorsFormatAndThenThePayloadOrTheCode)
{
    using Word = Result<void*>;
    EXPECT_EQ(sizeof(Word), 2 * sizeof(void*)) << "two words";
    EXPECT_EQ(offsetof(Word, error), 0u);
    EXPECT_EQ(offsetof(Word, payload), sizeof(void*));
    EXPECT_EQ(offsetof(Word, code), sizeof(void*));
}

TEST(Result, IsASuccessByItsNullErrorAlone)
{
    const RecordedLog log;
    const Result<bool> isFalse = Success(false);
    EXPECT_EQ(isFalse.error, nullptr);
    EXPECT_FALSE(isFalse.payload);
    const Result<bool> isTrue = Success(true);
    EXPECT_EQ(isTrue.error, nullptr);
    EXPECT_TRUE(isTrue.payload);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST(Result, CarriesARecord)
{
    int object = 0;
    const Result<Record> result = Success(Record{&object, 12});
    const Result<Record> copy = result;
    EXPECT_EQ(copy.error, nullptr);
    EXPECT_EQ(copy.payload.handle, &object);
    EXPECT_EQ(copy.payload.size, 12u);
}

TEST(Result, OfAFailureHoldsTheUnfilledFormatItselfAndTheCode)
{
    const RecordedLog log;
    static constexpr char format[] = "Cannot open file %ls.";
    const Result<void*> result = FailToOpen(format);
    EXPECT_EQ(result.error, format);
    EXPECT_EQ(result.code, 87u);
}

TEST(MakeError, LogsTheFilledTextAndTheCodeUnderItsOwnHeadersPosition)
{
    const RecordedLog log;
    FailToOpen("Cannot open file %ls.");
    EXPECT_EQ(log.GetLines(), Lines({"DBG Cannot open file C:\\log.txt.", "DBG Error: 87, 0x57"}));
    for (const LogCall& call : log.GetCalls())
    {
        EXPECT_EQ(call.file, "Result.h");
        EXPECT_GT(call.line, 0);
    }
}

TEST(MakeError, LogsTheCodeAsASignedNumberToo)
{
    const RecordedLog log;
    const Result<void*> result = MakeError(0xC0000005u, "text");
    EXPECT_EQ(log.GetLines(), Lines({"DBG text", "DBG Error: -1073741819, 0xC0000005"}));
    EXPECT_EQ(result.code, 0xC0000005u);
}

TEST(Expect, ReturnsThePayloadOfASuccessSilently)
{
    const RecordedLog log;
    int object = 0;
    EXPECT_EQ(Expect(Success<void*>(&object), "Cannot create event"), &object);
    EXPECT_FALSE(Expect(Success(false), "Cannot wait")) << "a success all the same";
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST(Expect, PanicsAtAFailureUnderItsOwnHeadersPosition)
{
    const RecordedLog log;
    const Result<void*> result = Failure{"CreateMutexW(%ls) failed.", 5};
    Expect(result, "Cannot create heart beat mutex for process %ls", L"\x00E4");
    ASSERT_EQ(log.GetLines(), Lines({"PNC Cannot create heart beat mutex for process \xC3\xA4"}));
    EXPECT_EQ(log.GetCalls()[0].file, "Result.h");
    EXPECT_GT(log.GetCalls()[0].line, 0);
    EXPECT_EQ(log.GetCalls()[0].separateText, 0u);
}

TEST(Expect, ReturnsTheCodeInThePlaceOfThePayload)
{
    const RecordedLog log;
    const Result<void*> handle = Failure{"CreateEventW(%hs) failed.", 183};
    EXPECT_EQ(Expect(handle, "Cannot create event"), reinterpret_cast<void*>(uintptr_t{183}));
    const Result<uint32_t> number = Failure{"text", 0xC0000005u};
    EXPECT_EQ(Expect(number, "Cannot"), 0xC0000005u);
    const Record record = Expect(Result<Record>(Failure{"text", 6}), "Cannot");
    EXPECT_EQ(record.handle, reinterpret_cast<void*>(uintptr_t{6})) << "the first word of a longer payload";
    EXPECT_EQ(record.size, 0u);
}

TEST(Expect, ReturnsACodeOfZeroToo)
{
    const RecordedLog log;
    EXPECT_EQ(Expect(Result<void*>(Failure{"text", 0}), "Cannot create event"), nullptr);
    EXPECT_EQ(log.GetLines(), Lines({"PNC Cannot create event"})) << "a failure by its error alone";
}

TEST(ExpectOr, ReturnsThePayloadOrTheFallbackAfterAPanicUnderItsOwnHeadersPosition)
{
    const RecordedLog log;
    EXPECT_EQ(ExpectOr(7u, Success(5u), "Cannot create %hs", "it"), 5u);
    EXPECT_EQ(log.GetLines(), Lines());
    EXPECT_EQ(ExpectOr(7u, Result<uint32_t>(Failure{"text", 183}), "Cannot create %hs", "it"), 7u);
    ASSERT_EQ(log.GetLines(), Lines({"PNC Cannot create it"}));
    EXPECT_EQ(log.GetCalls()[0].file, "Result.h");
}
} // namespace Torvane::Testing
