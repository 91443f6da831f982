#pragma once

/// \file
/// What the Agent reads of the host's project preferences: where the Broker's folder is. Receiver thread, during its
/// initialization.

#include "Agent/Protocol/Blob.h"
#include "Shared/Foundation/FixedString.h"
#include "Shared/Serialization/SerializationUtil.h"

namespace Torvane
{
/// `directoryToBroker`, a path that is absolute or relative to the Agent's own folder, with its default.
StringPreference MakeProjectPreferences();

/// Reads the string `directoryToBroker` in the section `General` of a file; the log is that of `OpenJsonFile`.
/// \return whether the file was read and parsed, even if it lacks the key.
bool LoadProjectPreferences(StringPreference& directoryToBroker, const FixedWideString& path);

/// Takes the value of the host's record.
/// \param record in the Blob, not a copy.
void CopyProjectPreferencesFromBlob(StringPreference& directoryToBroker,
                                    const ProjectPreferencesRecord& record);

/// Takes the value from the file that the record names, or from the record, or leaves it. A file logs the attempt, its
/// success and its failure, an Error line after which the value stays as it is.
/// \param record in the Blob, not a copy.
void ReadProjectPreferences(StringPreference& directoryToBroker, const ProjectPreferencesRecord& record);

/// The Broker's folder as the OS spells it; as it was given if there is none.
/// \param libraryFolder of the Agent's own file; the base of a path whose second character is no colon.
FixedWideString MakeBrokerFolder(const StringPreference& directoryToBroker,
                                 const FixedWideString& libraryFolder);
} // namespace Torvane
