#include "Shared/Process/Windows/ProcessLoaderLock.h"

#include "Shared/Foundation/Logger.h"

#include <stdint.h>
#include <windows.h>

namespace Torvane
{
namespace
{
/// `ProcessEnvironmentBlock` of the published `TEB` of a 32-bit process.
constexpr uint32_t environmentBlockOffset = 0x30;

/// `LoaderLock` of the published `PEB` of a 32-bit process.
constexpr uint32_t loaderLockOffset = 0xA0;
} // namespace

void* GetLoaderLock()
{
    const uint8_t* threadBlock = reinterpret_cast<const uint8_t*>(NtCurrentTeb());
    const uint8_t* processBlock =
        *reinterpret_cast<const uint8_t* const*>(threadBlock + environmentBlockOffset);
    void* lock = *reinterpret_cast<void* const*>(processBlock + loaderLockOffset);
    LogDebug(TVN_HERE, "Found loader lock at 0x%p", lock);
    return lock;
}
} // namespace Torvane
