// A host in C++ that loads the Agent at run time.

#include <Torvane/Load.h>

#include <stdio.h>

namespace
{
void TVN_CALL TakeStatus(void*, TvnConnectionStatus status)
{
    printf("status %d\n", static_cast<int>(status));
}
} // namespace

int main()
{
    static TvnHost host;
    if (!TvnHostLoad(&host, nullptr) || !TvnHostStartSynchronizedAgent(&host, nullptr, nullptr, nullptr))
    {
        printf("%ls\n", host.reason);
        return 1;
    }
    printf("version %s\n", host.exports.TvnGetVersion());
    TvnHostOnConnection(&host, nullptr, &TakeStatus);
    TvnHostWaitForConnection(&host, 60000);
    TvnHostShutdown(&host);
    printf("done\n");
    return 0;
}
