#include "Agent/Preferences/Windows/AgentProjectPreferences.h"

#include "Shared/Container/OwnedString.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Serialization/Windows/JsonFile.h"

#include <string.h>

namespace Torvane
{
namespace
{
void AssignTerminated(StringPreference& preference, const char* text)
{
    AssignText(preference, text, static_cast<uint32_t>(strlen(text)));
}
} // namespace

StringPreference MakeProjectPreferences()
{
    StringPreference directoryToBroker = {"directoryToBroker", {}};
    AssignTerminated(directoryToBroker, "../../Broker");
    return directoryToBroker;
}

bool LoadProjectPreferences(StringPreference& directoryToBroker, const FixedWideString& path)
{
    return LoadPreference(path.text, "General", directoryToBroker);
}

void CopyProjectPreferencesFromBlob(StringPreference& directoryToBroker,
                                    const ProjectPreferencesRecord& record)
{
    LogDebug(TVN_HERE, "Copying project preferences from blob");
    const OwnedWideString folder = CopyWide(FollowWideString(record.directoryToBroker));
    AssignTerminated(directoryToBroker, NarrowFromWide(folder.pointer).pointer);
}

void ReadProjectPreferences(StringPreference& directoryToBroker, const ProjectPreferencesRecord& record)
{
    if (record.fromFile != 0)
    {
        FixedWideString path = {};
        path.Assign(CopyWide(FollowWideString(record.projectPreferencesFile)).pointer);
        LogDebug(TVN_HERE, "Trying to load project preferences from %ls", path.text);
        if (LoadProjectPreferences(directoryToBroker, path))
        {
            LogSuccess(TVN_HERE, "Loaded project-specific preferences from file %ls", path.text);
        }
        else
        {
            LogError(TVN_HERE, "Could not load project-specific preferences from file %ls", path.text);
        }
    }
    else if (record.fromRecord != 0)
    {
        CopyProjectPreferencesFromBlob(directoryToBroker, record);
    }
}

FixedWideString MakeBrokerFolder(const StringPreference& directoryToBroker,
                                 const FixedWideString& libraryFolder)
{
    FixedString narrow = {};
    narrow.Format("%hs", directoryToBroker.GetText());
    const FixedWideString wide = WidenPath(narrow.text);
    if (narrow.text[0] == '\0' || narrow.text[1] == ':')
    {
        return NormalizePath(wide.text);
    }
    FixedWideString folder = {};
    folder.Format(L"%ls\\%ls", libraryFolder.text, wide.text);
    return NormalizePath(folder.text);
}
} // namespace Torvane
