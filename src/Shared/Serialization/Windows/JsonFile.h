#pragma once

/// \file
/// JSON files, read whole in strict mode. Any thread.

#include "Shared/Filesystem/MappedFile.h"
#include "Shared/Serialization/SerializationUtil.h"

namespace Torvane
{
/// Owned by whoever has opened it.
struct JsonFile
{
    MappedFile file;
    JsonValue* root;
};

/// Maps and parses a file.
///
/// A file that isn't there, or was never written to by its times, is left alone without a word. One that can't be
/// mapped, such as one of no bytes, leaves the Debug lines of the attempt. Malformed JSON logs one Error line with the
/// path, and its mapping stays open for the rest of the process.
/// \return whether `json` holds the document, to be given back with `CloseJsonFile`.
bool OpenJsonFile(const wchar_t* path, JsonFile& json);

void CloseJsonFile(JsonFile& json);

/// Opens a file, reads a preference (see `ReadPreference`) and closes it.
/// \return whether the file was read and parsed, and not whether it held the key.
template<typename Preference>
bool LoadPreference(const wchar_t* path, const char* section, Preference& preference)
{
    JsonFile json = {};
    if (!OpenJsonFile(path, json))
    {
        return false;
    }
    ReadPreference(*json.root, section, preference);
    CloseJsonFile(json);
    return true;
}
} // namespace Torvane
