#include "Agent/Preferences/Windows/AgentGlobalPreferences.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/Serialization/Windows/JsonFile.h"

namespace Torvane
{
namespace
{
constexpr int32_t defaultTimeoutMilliseconds = 2000;

struct GlobalPreferenceFile
{
    const wchar_t* name;
    CheckedFormat<const wchar_t*> loaded; ///< the log line of success, for the path
};

/// From the lowest precedence to the highest.
constexpr GlobalPreferenceFile files[] = {
    {L"\\global_preferences_default.json", "Loaded default global preferences from %ls"},
    {L"\\global_preferences.json", "Loaded global preferences from %ls"},
    {L"\\global_preferences_override.json", "Loaded overridden global preferences from %ls"},
};
} // namespace

IntPreference MakeGlobalPreferences()
{
    return {"timeout", defaultTimeoutMilliseconds};
}

bool LoadGlobalPreferences(IntPreference& timeout, const FixedWideString& path)
{
    return LoadPreference(path.text, "Network", timeout);
}

void LoadAllGlobalPreferences(IntPreference& timeout, const FixedWideString& brokerFolder)
{
    for (const GlobalPreferenceFile& file : files)
    {
        FixedWideString path = {};
        path.Format(L"%ls%ls", brokerFolder.text, file.name);
        LogDebug(TVN_HERE, "Trying to load global preferences from %ls", path.text);
        if (LoadGlobalPreferences(timeout, path))
        {
            LogDebug(TVN_HERE, file.loaded, path.text);
        }
    }
}
} // namespace Torvane
