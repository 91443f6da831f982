#include "Shared/Filesystem/Windows/Filesystem.h"

#include "Shared/Filesystem/MappedFile.h"
#include "Shared/Foundation/Windows/ResultOS.h"

#include <stdlib.h>
#include <string.h>

#include <objbase.h>
#include <shlobj.h>

namespace Torvane
{
namespace
{
constexpr uint32_t pathCapacity = 1024;

/// FOLDERID_LocalAppData, {F1B32785-6FBA-4FCF-9D55-7B8E7F157091}.
constexpr GUID localApplicationData = {
    0xF1B32785, 0x6FBA, 0x4FCF, {0x9D, 0x55, 0x7B, 0x8E, 0x7F, 0x15, 0x70, 0x91}};

/// Length of the prefix of every path from GetFinalPathNameByHandleW, `\\?\`.
constexpr uint32_t finalPathPrefixLength = 4;
} // namespace

Result<MappedFile> OpenMappedFile(const wchar_t* path)
{
    const DWORD mode = GENERIC_READ;
    const HANDLE file =
        CreateFileW(path, mode, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_READONLY, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return MakeOSError("Cannot open file %ls with open mode 0x%X.", path, mode);
    }
    const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    if (mapping == nullptr)
    {
        const Failure failure = MakeOSError("Cannot create mapped file %ls with open mode 0x%X.", path, mode);
        CloseHandle(file);
        return failure;
    }
    const void* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
    if (view == nullptr)
    {
        const Failure failure = MakeOSError("Cannot map view of file %ls with open mode 0x%X.", path, mode);
        CloseHandle(mapping);
        CloseHandle(file);
        return failure;
    }
    return Success(MappedFile{file, mapping, static_cast<const uint8_t*>(view)});
}

void CloseMappedFile(MappedFile& file)
{
    UnmapViewOfFile(file.view);
    CloseHandle(file.mapping);
    CloseHandle(file.file);
    file = MappedFile{};
}

FixedWideString NormalizePath(const wchar_t* path)
{
    FixedWideString normalized = {};
    normalized.Assign(path);
    const HANDLE file = CreateFileW(path, READ_CONTROL | FILE_READ_ATTRIBUTES, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return normalized;
    }
    wchar_t finalPath[pathCapacity] = {};
    const DWORD length = GetFinalPathNameByHandleW(file, finalPath, pathCapacity, 0);
    if (length > finalPathPrefixLength && length < pathCapacity)
    {
        normalized = {};
        normalized.Assign(finalPath + finalPathPrefixLength);
    }
    else
    {
        LogLastError(TVN_HERE, "Cannot normalize path %ls", path);
    }
    CloseHandle(file);
    return normalized;
}

FixedWideString GetDirectory(const wchar_t* path, uint32_t length)
{
    FixedWideString directory = {};
    directory.length = length;
    for (uint32_t i = length; i-- > 1;)
    {
        if (path[i] == L'\\' || path[i] == L'/')
        {
            directory.length = i;
            break;
        }
    }
    memcpy(directory.text, path, directory.length * sizeof(wchar_t));
    return directory;
}

FixedWideString GetExecutablePath()
{
    FixedWideString path = {};
    path.length = GetModuleFileNameW(nullptr, path.text, pathCapacity);
    return path;
}

Result<HANDLE> CreateFileForWriting(const wchar_t* path)
{
    LogDebug(TVN_HERE, "Creating file at %ls", path);
    const HANDLE file = CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return MakeOSError("Cannot open file %ls.", path);
    }
    return Success(file);
}

FixedWideString GetLogFilePath(const wchar_t* fileName)
{
    wchar_t* folder = nullptr;
    SHGetKnownFolderPath(localApplicationData, 0, nullptr, &folder);
    FixedWideString path = {};
    path.Assign(folder != nullptr ? folder : L"");
    CoTaskMemFree(folder);
    path.Append(L"\\Torvane 2\\Logs\\");
    path.Append(fileName);
    return path;
}

FixedWideString WidenPath(const char* path)
{
    FixedString narrow = {};
    narrow.Assign(path);
    FixedWideString wide = {};
    size_t converted = 0;
    mbstowcs_s(&converted, wide.text, pathCapacity, narrow.text, _TRUNCATE);
    wide.length = narrow.length;
    return wide;
}
} // namespace Torvane
