#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Transport/Windows/ConnectionState.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Foundation/Logger.h"
#include "Torvane/Agent.h"

#include <windows.h>

using namespace Torvane;

extern "C" void TVN_CALL TvnOnConnection(void* context, TvnConnectionCallback callback)
{
    LogDebug(TVN_HERE, "API TvnOnConnection");
    SetConnectionCallback(context, callback);
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
