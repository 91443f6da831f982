#pragma once

/// \file
/// The other side of an exception, for the Bridge halves of tests.

#include "tests/Harness/BridgeTest.h"

#include <string.h>

#include <windows.h>

namespace Torvane::Testing
{
static_assert(sizeof(WOW64_CONTEXT) == 716);
static_assert(sizeof(EXCEPTION_RECORD32) == 80);

/// What a Bridge can answer.
constexpr uint32_t actionContinueSearch = 0;
constexpr uint32_t actionNopInstruction = 1;
constexpr uint32_t actionSkipInstruction = 2;
constexpr uint32_t actionResumeAtFrame = 3;
constexpr uint32_t actionIgnore = 4;

/// A `HandleExceptionWindows` Blob with what it refers to. Empty (false) if none came.
struct ExceptionReport
{
    Bridge::Received<HandleExceptionWindowsBlob> blob;
    WOW64_CONTEXT context = {};
    EXCEPTION_RECORD32 record = {};

    ExceptionReport() = default;

    explicit ExceptionReport(Bridge::Received<HandleExceptionWindowsBlob> received)
        : blob(std::move(received))
    {
        if (blob)
        {
            Take(blob->context, &context, sizeof(context));
            Take(blob->record, &record, sizeof(record));
        }
    }

    explicit operator bool() const
    {
        return static_cast<bool>(blob);
    }

private:
    void Take(const RelativeOffset& field, void* target, size_t size)
    {
        const std::vector<uint8_t> bytes = blob.Data(field, size);
        EXPECT_EQ(size, bytes.size());
        memcpy(target, bytes.data(), bytes.size());
    }
};

inline ExceptionReport AwaitException(Bridge::Link& link, uint32_t milliseconds = patience)
{
    return ExceptionReport(link.Expect<HandleExceptionWindowsBlob>(milliseconds));
}

inline void Answer(Bridge::Link& link, const ExceptionReport& report, uint32_t action,
                   const ResumeRecord& resumeRecord = {})
{
    EXPECT_TRUE(Bridge::SendHandleExceptionResult(link, *report.blob, action, resumeRecord));
}

/// Lets the Agent install its handler. \return when it is there.
inline bool InstallHandler(Bridge::Link& link, uint32_t order = 1)
{
    return Bridge::SendInstallExceptionHandler(link, order) && Bridge::WaitUntilObeyed(link, patience);
}
} // namespace Torvane::Testing
