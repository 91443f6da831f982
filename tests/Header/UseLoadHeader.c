#include <Torvane/Load.h>

typedef char ExportsAre30Functions[sizeof(TvnExports) == 30 * sizeof(void*) ? 1 : -1];

static TvnHost host;

void UseLoadHeader(void);

void UseLoadHeader(void)
{
    if (TvnHostLoad(&host, NULL) && TvnHostStartDefaultAgent(&host, NULL, NULL, NULL))
    {
        TvnHostEnableModule(&host, L"host.exe", IncludeImports, NULL, NULL);
        TvnHostShutdown(&host);
    }
}
