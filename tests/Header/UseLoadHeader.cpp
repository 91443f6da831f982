#include <Torvane/Load.h>

void UseLoadHeader();

void UseLoadHeader()
{
    Torvane::Host host;
    if (TvnHostStartSynchronizedAgent(host, nullptr, nullptr, nullptr) &&
        TvnHostWantsReload(host, SyncBeforeLoad))
    {
        TvnHostReload(host, WaitUntilFinished);
    }
}
