#pragma once

/// \file
/// JSON files, read whole in strict mode. Any thread.

#include "Shared/Filesystem/MappedFile.h"
#include "Shared/Serialization/SerializationUtil.h"

namespace Torvane
{
/// Owned by the caller of `OpenJsonFile`.
struct JsonFile
{
    MappedFile file;
    JsonValue* root;
};

/// Maps and parses a file.
///
/// A file that doesn't exist, or whose times say that it was never written, fails silently. One that can't be mapped,
/// such as one of no bytes, logs the Debug lines of the attempt. Malformed JSON logs one Error line with the path, and
/// its mapping stays open until the process ends.
/// \return whether `json` has the document, to be closed with `CloseJsonFile`.
bool OpenJsonFile(const wchar_t* path, JsonFile& json);

void CloseJsonFile(JsonFile& json);

/// Opens a file, reads a preference (see `ReadPreference`) and closes it.
/// \return whether the file was read and parsed, with or without the key.
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
