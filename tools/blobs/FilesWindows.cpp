// The OS has macros of the names MoveFile and ReadFile.
#include <windows.h>
#undef MoveFile

#include "tools/blobs/Files.h"

namespace Torvane::Blobs
{
namespace
{
std::wstring Wide(const std::string& text)
{
    std::wstring wide(text.size(), L'\0');
    wide.resize(static_cast<size_t>(MultiByteToWideChar(
        CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), static_cast<int>(wide.size()))));
    return wide;
}

DWORD AttributesOf(const std::string& path)
{
    return GetFileAttributesW(Wide(path).c_str());
}

/// Opened for its attributes only. \return INVALID_HANDLE_VALUE for folders too.
HANDLE OpenToAsk(const std::string& path)
{
    return CreateFileW(Wide(path).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       OPEN_EXISTING, 0, nullptr);
}

bool Identify(const std::string& path, BY_HANDLE_FILE_INFORMATION& information)
{
    const HANDLE file = OpenToAsk(path);
    if (file == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    const bool isKnown = GetFileInformationByHandle(file, &information);
    CloseHandle(file);
    return isKnown;
}
} // namespace

/// The runtime's `fopen` fails for a file that is open for writing elsewhere; a recording is also read while a Bridge
/// writes it.
FILE* OpenFile(const std::string& path, const char* mode)
{
    return _wfsopen(Wide(path).c_str(), Wide(mode).c_str(), 0x40); // _SH_DENYNO
}

bool Exists(const std::string& path)
{
    return AttributesOf(path) != INVALID_FILE_ATTRIBUTES;
}

bool IsFolder(const std::string& path)
{
    const DWORD attributes = AttributesOf(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsDevice(const std::string& path)
{
    const HANDLE file = OpenToAsk(path);
    const bool isDevice = file != INVALID_HANDLE_VALUE && GetFileType(file) != FILE_TYPE_DISK;
    if (file != INVALID_HANDLE_VALUE)
    {
        CloseHandle(file);
    }
    return isDevice;
}

bool IsSameFile(const std::string& first, const std::string& second)
{
    BY_HANDLE_FILE_INFORMATION firstInformation;
    BY_HANDLE_FILE_INFORMATION secondInformation;
    return Identify(first, firstInformation) && Identify(second, secondInformation) &&
           firstInformation.dwVolumeSerialNumber == secondInformation.dwVolumeSerialNumber &&
           firstInformation.nFileIndexHigh == secondInformation.nFileIndexHigh &&
           firstInformation.nFileIndexLow == secondInformation.nFileIndexLow;
}

bool MoveFile(const std::string& from, const std::string& to, bool replace, std::string& reason)
{
    if (MoveFileExW(Wide(from).c_str(), Wide(to).c_str(), replace ? MOVEFILE_REPLACE_EXISTING : 0))
    {
        return true;
    }
    reason = "it can't be given its name (error " + std::to_string(GetLastError()) + ")";
    return false;
}

void RemoveFile(const std::string& path)
{
    DeleteFileW(Wide(path).c_str());
}

unsigned long CurrentProcess()
{
    return GetCurrentProcessId();
}
} // namespace Torvane::Blobs
