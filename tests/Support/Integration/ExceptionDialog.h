#pragma once

/// \file
/// The other side of an exception, for the Bridge halves of tests.

#include "tests/Support/Integration/BridgeTest.h"

#include <string.h>

#include <windows.h>

namespace Torvane::Testing
{
static_assert(sizeof(WOW64_CONTEXT) == 716);
static_assert(sizeof(EXCEPTION_RECORD32) == 80);

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

/// Base of Bridge halves that decide on exceptions.
class ExceptionBridge : public BridgeTest
{
protected:
    /// Connects, and lets the Agent install its handler in each of these places. The host half goes on then.
    template<typename... Orders>
    bool Start(Orders... orders)
    {
        if (!Connect() || !(Bridge::SendInstallExceptionHandler(link, orders) && ...) ||
            !Bridge::WaitUntilExecuted(link, testTimeout))
        {
            return false;
        }
        Signal("installed");
        return true;
    }

    bool Start()
    {
        return Start(1u);
    }

    ExceptionReport AwaitException()
    {
        return ExceptionReport(link.Expect<HandleExceptionWindowsBlob>(testTimeout));
    }

    void Answer(const ExceptionReport& report, uint32_t action, const ResumeRecord& resumeRecord = {})
    {
        EXPECT_TRUE(Bridge::SendHandleExceptionResult(link, *report.blob, action, resumeRecord));
    }

    /// Whether the Agent has sent nothing that wasn't taken yet.
    bool NothingElseCame()
    {
        return Bridge::WaitUntilExecuted(link, testTimeout) && !link.Receive(0);
    }
};
} // namespace Torvane::Testing
