#pragma once

/// \file
/// What a Bridge does about exceptions of the host, for the Bridge halves of tests.

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

/// Base of Bridge halves that decide on exceptions and install the handler themselves.
class UninstalledExceptionBridge : public ConnectedBridgeTest
{
protected:
    /// Has the Agent install its handler once for each of these orders. The host half continues then.
    template<typename... Orders>
    bool Install(Orders... orders)
    {
        if (!(Bridge::SendInstallExceptionHandler(link, orders) && ...) || !Fence())
        {
            return false;
        }
        Signal("installed");
        return true;
    }

    ExceptionReport AwaitException()
    {
        return ExceptionReport(WaitFor<HandleExceptionWindowsBlob>());
    }

    void Answer(const ExceptionReport& report, uint32_t action, const ResumeRecord& resumeRecord = {})
    {
        EXPECT_TRUE(Bridge::SendHandleExceptionResult(link, *report.blob, action, resumeRecord));
    }

    /// Whether the Agent has sent nothing that wasn't taken yet.
    bool NothingElseCame()
    {
        return Fence() && !link.Receive(0);
    }
};

/// Base of Bridge halves that decide on exceptions. The Agent's handler is installed when their body begins.
class ExceptionBridge : public UninstalledExceptionBridge
{
protected:
    void SetUp() override
    {
        ConnectedBridgeTest::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        ASSERT_TRUE(Install(1u));
    }
};
} // namespace Torvane::Testing
