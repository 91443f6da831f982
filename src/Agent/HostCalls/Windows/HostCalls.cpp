#include "Agent/HostCalls/Windows/HostCalls.h"

#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Foundation/Logger.h"

#include <windows.h>

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

ConnectionState connectionState = {};
} // namespace

void InitializeConnectionState()
{
    InitializeCriticalSection(&connectionState.lock);
}

void DeleteConnectionState()
{
    DeleteCriticalSection(&connectionState.lock);
}

void ReportConnectionStatus(TvnConnectionStatus status)
{
    EnterCriticalSection(&connectionState.lock);
    connectionState.reported = true;
    connectionState.status = status;
    if (connectionState.callback != nullptr)
    {
        connectionState.callback(connectionState.context, status);
    }
    LeaveCriticalSection(&connectionState.lock);
}
} // namespace Torvane

using namespace Torvane;

/// Unlike `ReportConnectionStatus`, calls the callback without looking whether there is one.
extern "C" void TVN_CALL TvnOnConnection(void* context, TvnConnectionCallback callback)
{
    LogDebug(TVN_HERE, "API TvnOnConnection");
    EnterCriticalSection(&connectionState.lock);
    connectionState.context = context;
    connectionState.callback = callback;
    if (connectionState.reported)
    {
        callback(context, connectionState.status);
    }
    LeaveCriticalSection(&connectionState.lock);
}

extern "C" void TVN_CALL TvnLogMessage(const wchar_t* message)
{
    LogDebug(TVN_HERE, "API TvnLogMessage");
    PushBlob(BuildLogBlob(BlobLogLevel::Info, message));
}

extern "C" void TVN_CALL TvnLogMessageANSI(const char* message)
{
    LogDebug(TVN_HERE, "API TvnLogMessageANSI");
    PushBlob(BuildLogBlob(BlobLogLevel::Info, message));
}

extern "C" void TVN_CALL TvnSetBoolPreferences(uint32_t preference, bool value)
{
    LogDebug(TVN_HERE, "API TvnSetBoolPreferences");
    RecordBuilder<SetBoolPreferencesBlob> builder;
    builder.Fixed().preference = preference;
    builder.Fixed().value = value ? 1 : 0;
    PushBlob(builder.Finish());
}

extern "C" void TVN_CALL TvnSetIntPreferences(uint32_t preference, int32_t value)
{
    LogDebug(TVN_HERE, "API TvnSetIntPreferences");
    RecordBuilder<SetIntPreferencesBlob> builder;
    builder.Fixed().preference = preference;
    builder.Fixed().value = value;
    PushBlob(builder.Finish());
}

extern "C" void TVN_CALL TvnSetStringPreferences(uint32_t preference, const char* value)
{
    LogDebug(TVN_HERE, "API TvnSetStringPreferences");
    RecordBuilder<SetStringPreferencesBlob> builder(MeasureText(value));
    builder.Fixed().preference = preference;
    builder.AppendText(builder.Fixed().value, value);
    PushBlob(builder.Finish());
}

extern "C" void TVN_CALL TvnSetShortcutPreferences(uint32_t preference, uint32_t firstArgument,
                                                   uint32_t secondArgument)
{
    LogDebug(TVN_HERE, "API TvnSetShortcutPreferences");
    RecordBuilder<SetShortcutPreferencesBlob> builder;
    builder.Fixed().preference = preference;
    builder.Fixed().firstArgument = firstArgument;
    builder.Fixed().secondArgument = secondArgument;
    PushBlob(builder.Finish());
}
