#include "Shared/Serialization/Windows/JsonFile.h"

#include "Shared/Filesystem/MappedFile.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "Shared/Foundation/Logger.h"

namespace Torvane
{
namespace
{
bool HasBeenWritten(const wchar_t* path)
{
    WIN32_FILE_ATTRIBUTE_DATA attributes = {};
    return GetFileAttributesExW(path, GetFileExInfoStandard, &attributes) &&
           (attributes.ftLastWriteTime.dwLowDateTime != 0 || attributes.ftLastWriteTime.dwHighDateTime != 0);
}

/// \return the size's low word, in bytes.
uint32_t GetSize(const MappedFile& file)
{
    BY_HANDLE_FILE_INFORMATION information = {};
    GetFileInformationByHandle(file.file, &information);
    return information.nFileSizeLow;
}
} // namespace

bool OpenJsonFile(const wchar_t* path, JsonFile& json)
{
    if (!HasBeenWritten(path))
    {
        return false;
    }
    const Result<MappedFile> file = OpenMappedFile(path);
    if (file.error != nullptr)
    {
        return false;
    }
    JsonParseState state = StartJsonParse(file.payload.view, GetSize(file.payload), 0);
    JsonValue* root = ParseJson(state);
    if (root == nullptr)
    {
        LogError(TVN_HERE, "Failed to parse malformed JSON from %ls", path);
        return false;
    }
    json = {file.payload, root};
    return true;
}

void CloseJsonFile(JsonFile& json)
{
    FreeJson(json.root);
    json.root = nullptr;
    CloseMappedFile(json.file);
}
} // namespace Torvane
