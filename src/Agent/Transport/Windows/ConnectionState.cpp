#include "Agent/Transport/Windows/ConnectionState.h"

#include "Shared/Concurrency/Windows/ScopedCriticalSection.h"

namespace Torvane
{
namespace
{
struct ConnectionState
{
    CRITICAL_SECTION lock;
    TvnConnectionCallback callback;
    void* context;
    bool reported;
    TvnConnectionStatus status;
};

ConnectionState state = {};
} // namespace

void InitializeConnectionState()
{
    InitializeCriticalSection(&state.lock);
}

void DeleteConnectionState()
{
    DeleteCriticalSection(&state.lock);
}

void ReportConnectionStatus(TvnConnectionStatus status)
{
    const ScopedCriticalSection scope(state.lock);
    state.reported = true;
    state.status = status;
    if (state.callback != nullptr)
    {
        state.callback(state.context, status);
    }
}

void SetConnectionCallback(void* context, TvnConnectionCallback callback)
{
    const ScopedCriticalSection scope(state.lock);
    state.context = context;
    state.callback = callback;
    if (state.reported)
    {
        callback(context, state.status);
    }
}
} // namespace Torvane
