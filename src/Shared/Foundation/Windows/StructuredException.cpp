#include "Shared/Foundation/Windows/StructuredException.h"

#include "Shared/Foundation/Windows/ExceptionFrame.h"

#include <windows.h>

namespace Torvane
{
bool RunInExceptionFrame(void (*function)(void* context), void* context)
{
    return TorvaneRunInFrame(function, context) != 0;
}
} // namespace Torvane

/// The frame's handler. The OS calls it twice: to ask, and again while it unwinds past the frame for another.
extern "C" EXCEPTION_DISPOSITION __cdecl TorvaneHandleException(EXCEPTION_RECORD* record, void* frame,
                                                                CONTEXT*, void*)
{
    if ((record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND)) != 0)
    {
        return ExceptionContinueSearch;
    }
    TorvaneLandInFrame(frame, record);
}
