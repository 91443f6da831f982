#include "Shared/Foundation/Windows/Debugger.h"

#include <windows.h>

namespace Torvane
{
void BreakIntoDebugger()
{
    if (IsDebuggerPresent())
    {
        __asm__ volatile("int3");
    }
}
} // namespace Torvane
