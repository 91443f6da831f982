#include "Shared/Foundation/Windows/Log.h"

#include "Shared/Foundation/Windows/CompositeLogger.h"
#include "Shared/Foundation/Windows/DebugOutputSink.h"
#include "Shared/Foundation/Windows/FileSink.h"

namespace Torvane
{
namespace
{
/// An object in static storage beside the mark that says whether it is constructed.
template<typename Object>
struct Constructed
{
    Object object;
    bool constructed;
};

Constructed<FileSink> fileSink = {FileSink(INVALID_HANDLE_VALUE), false};
Constructed<DebugOutputSink> debugOutputSink = {DebugOutputSink(0), false};
Constructed<CompositeLogger> compositeLogger = {CompositeLogger(&fileSink.object, &debugOutputSink.object),
                                                false};
} // namespace

void SetDebugOutputLevelMask(uint32_t mask)
{
    debugOutputSink.object.SetLevelMask(mask);
}

void StartupLog(HANDLE file)
{
    fileSink.object.SetFile(file);
    fileSink.constructed = true;
    debugOutputSink.constructed = true;
    compositeLogger.constructed = true;
    SetCurrentLogger(&compositeLogger.object);
}

void ShutdownLog()
{
    SetCurrentLogger(nullptr);
    if (fileSink.object.GetFile() != INVALID_HANDLE_VALUE)
    {
        CloseHandle(fileSink.object.GetFile());
        fileSink.object.SetFile(INVALID_HANDLE_VALUE);
    }
    fileSink.constructed = false;
    debugOutputSink.constructed = false;
    compositeLogger.constructed = false;
}
} // namespace Torvane
