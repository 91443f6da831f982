// A minimal Bridge: it acknowledges modules and writes down the host's log messages.

#include "bridge/Bridge.h"

#include <stdio.h>
#include <stdlib.h>

using namespace Torvane;
using namespace Torvane::Bridge;

int main()
{
    constexpr uint32_t limit = 20000; // milliseconds
    Link link(HostProcessIdFromCommandLine());
    FILE* notes = fopen(getenv("TORVANE_NOTES"), "w");
    if (notes == nullptr || !link.Connect(limit) || !link.ExchangeVersion(limit))
    {
        return 1;
    }
    while (const Message message = link.Receive(limit))
    {
        if (const Received<EnableModulesBlob> enabled{message};
            message.Type() == BlobType::EnableModules && enabled)
        {
            for (const EnabledModule& module : ModulesOf(enabled))
            {
                fprintf(notes, "module %ls\n", FileNameOf(module.path).c_str());
                SendDecrementLatch(link, enabled->latch);
            }
        }
        if (message.Type() == BlobType::LogWide)
        {
            fprintf(notes, "log %ls\n", message.Utf16String(message.As<LogBlob>()->text).c_str());
        }
    }
    fputs("end\n", notes);
    fclose(notes);
    return 0;
}
