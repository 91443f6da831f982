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
    Session session(link);
    FILE* notes = fopen(getenv("TORVANE_NOTES"), "w");
    session.ServeModules([&] {
        for (const EnabledModule& module : session.Modules())
        {
            fprintf(notes, "module %ls\n", FileNameOf(module.path).c_str());
        }
    });
    link.Serve<LogBlob>(
        [&](const Received<LogBlob>& log) {
            fprintf(notes, "log %ls\n", log.Utf16String(log->text).c_str());
        },
        BlobType::LogWide);
    if (notes == nullptr || !session.Connect(limit))
    {
        return 1;
    }
    link.Run();
    fputs("end\n", notes);
    fclose(notes);
    return 0;
}
