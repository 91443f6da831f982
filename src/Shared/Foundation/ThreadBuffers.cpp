#include "Shared/Foundation/ThreadBuffers.h"

namespace Torvane
{
namespace
{
thread_local char messageBuffer[messageBufferSize];
thread_local char fileLineBuffer[fileLineBufferSize];
thread_local char debuggerLineBuffer[debuggerLineBufferSize];
} // namespace

char* GetMessageBuffer()
{
    return messageBuffer;
}

char* GetFileLineBuffer()
{
    return fileLineBuffer;
}

char* GetDebuggerLineBuffer()
{
    return debuggerLineBuffer;
}
} // namespace Torvane
