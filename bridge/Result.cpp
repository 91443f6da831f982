#include "bridge/Result.h"

#include <windows.h>

namespace Torvane::Bridge
{
Failure OSFailure(const std::string& reason)
{
    const DWORD code = GetLastError();
    return {reason + ", error " + std::to_string(code), code};
}
} // namespace Torvane::Bridge
