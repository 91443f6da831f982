#include "Shared/Foundation/Windows/Log.h"

#include "Shared/Foundation/Windows/CompositeLogger.h"
#include "Shared/Foundation/Windows/DebugOutputSink.h"
#include "Shared/Foundation/Windows/FileSink.h"

namespace Torvane
{
namespace
{
FileSink fileSink(INVALID_HANDLE_VALUE);
DebugOutputSink debugOutputSink(0);
CompositeLogger compositeLogger(&fileSink, &debugOutputSink);
} // namespace

void SetDebugOutputLevelMask(uint32_t mask)
{
    debugOutputSink.SetLevelMask(mask);
}

void StartupLog(HANDLE file)
{
    fileSink.SetFile(file);
    SetCurrentLogger(&compositeLogger);
}

void ShutdownLog()
{
    SetCurrentLogger(nullptr);
    if (fileSink.GetFile() != INVALID_HANDLE_VALUE)
    {
        CloseHandle(fileSink.GetFile());
        fileSink.SetFile(INVALID_HANDLE_VALUE);
    }
}
} // namespace Torvane
