/// \file
/// A Bridge that makes the mistake which the environment variable TORVANE_TEST_MISTAKE names; without it, none.

#include "bridge/Bridge.h"

#include <string>
#include <windows.h>

using namespace Torvane;
using namespace Torvane::Bridge;

namespace
{
constexpr uint32_t limit = 60000;

std::string GetMistake()
{
    char mistake[32] = {};
    GetEnvironmentVariableA("TORVANE_TEST_MISTAKE", mistake, sizeof(mistake));
    return mistake;
}
} // namespace

int main()
{
    const std::string mistake = GetMistake();
    if (mistake == "never connects")
    {
        Sleep(limit);
        return 1;
    }
    Link link(HostProcessIdFromCommandLine());
    if (!link.Connect(limit))
    {
        return 1;
    }
    if (mistake == "other first message")
    {
        link.Send(MakeBlob(BlobType::RequestReload, nullptr, 0));
    }
    else if (mistake == "other version")
    {
        (void)link.ExchangeVersion(limit, "2.3.0");
    }
    else if (mistake != "silent")
    {
        (void)link.ExchangeVersion(limit);
    }
    link.WaitUntilClosed(limit);
    return 0;
}
