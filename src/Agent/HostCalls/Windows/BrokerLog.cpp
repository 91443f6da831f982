#include "Agent/HostCalls/Windows/BrokerLog.h"

#include <windows.h>

namespace Torvane
{
void ShowNarrowLog(const LogBlob& blob)
{
    OutputDebugStringA(Follow<char>(blob.text));
}

void ShowWideLog(const LogBlob& blob)
{
    OutputDebugStringW(FollowWideString(blob.text));
}
} // namespace Torvane
