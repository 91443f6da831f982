#include "tools/doctor/Image.h"

#include "bridge/Text.h"

#include <stdio.h>
#include <windows.h>

namespace Torvane::Doctor
{
namespace
{
constexpr uint32_t longestName = 260;
constexpr uint32_t mostImports = 4096; ///< a table without an end isn't followed further

class File
{
public:
    explicit File(const std::wstring& path)
        : handle(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                             OPEN_EXISTING, 0, nullptr))
        , error(handle == INVALID_HANDLE_VALUE ? GetLastError() : 0)
    {
    }

    ~File()
    {
        if (error == 0)
        {
            CloseHandle(handle);
        }
    }

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    uint32_t GetError() const
    {
        return error;
    }

    /// \return how many bytes were read: less than `size` at the end of the file.
    uint32_t ReadAt(uint32_t offset, void* data, uint32_t size) const
    {
        LARGE_INTEGER position = {};
        position.QuadPart = offset;
        DWORD read = 0;
        return SetFilePointerEx(handle, position, nullptr, FILE_BEGIN) &&
                       ::ReadFile(handle, data, size, &read, nullptr)
                   ? read
                   : 0;
    }

    template<typename Record>
    bool ReadRecord(uint32_t offset, Record& record) const
    {
        return ReadAt(offset, &record, sizeof(record)) == sizeof(record);
    }

private:
    HANDLE handle;
    uint32_t error;
};

using Sections = std::vector<IMAGE_SECTION_HEADER>;

/// \return 0 if no section has the address in its file.
uint32_t OffsetOf(uint32_t address, const Sections& sections)
{
    for (const IMAGE_SECTION_HEADER& section : sections)
    {
        if (address >= section.VirtualAddress && address - section.VirtualAddress < section.SizeOfRawData)
        {
            return section.PointerToRawData + (address - section.VirtualAddress);
        }
    }
    return 0;
}

std::vector<std::string> ReadImports(const File& file, const IMAGE_DATA_DIRECTORY& directory,
                                     const Sections& sections)
{
    std::vector<std::string> imports;
    const uint32_t table = directory.VirtualAddress != 0 ? OffsetOf(directory.VirtualAddress, sections) : 0;
    IMAGE_IMPORT_DESCRIPTOR import = {};
    while (table != 0 && imports.size() < mostImports &&
           file.ReadRecord(table + static_cast<uint32_t>(imports.size() * sizeof(import)), import) &&
           import.Name != 0)
    {
        char name[longestName + 1] = {};
        const uint32_t offset = OffsetOf(import.Name, sections);
        if (offset == 0 || file.ReadAt(offset, name, longestName) == 0)
        {
            break;
        }
        imports.emplace_back(name);
    }
    return imports;
}

/// The two kinds of optional header have the import directory at different places.
bool ReadImportDirectory(const File& file, uint32_t offset, IMAGE_DATA_DIRECTORY& directory)
{
    IMAGE_OPTIONAL_HEADER32 narrow = {};
    IMAGE_OPTIONAL_HEADER64 wide = {};
    if (!file.ReadRecord(offset, narrow.Magic))
    {
        return false;
    }
    if (narrow.Magic == IMAGE_NT_OPTIONAL_HDR32_MAGIC && file.ReadRecord(offset, narrow))
    {
        directory = narrow.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        return true;
    }
    if (narrow.Magic == IMAGE_NT_OPTIONAL_HDR64_MAGIC && file.ReadRecord(offset, wide))
    {
        directory = wide.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        return true;
    }
    return false;
}

std::string ReadString(const std::vector<uint8_t>& version, const wchar_t* name)
{
    struct
    {
        WORD language;
        WORD codePage;
    }* translation = nullptr;
    UINT size = 0;
    if (!VerQueryValueW(version.data(), L"\\VarFileInfo\\Translation", reinterpret_cast<void**>(&translation),
                        &size) ||
        size < sizeof(*translation))
    {
        return "";
    }
    wchar_t path[128] = {};
    swprintf(path, 128, L"\\StringFileInfo\\%04x%04x\\%ls", translation->language, translation->codePage,
             name);
    const wchar_t* value = nullptr;
    return VerQueryValueW(version.data(), path, reinterpret_cast<void**>(const_cast<wchar_t**>(&value)),
                          &size) &&
                   size != 0
               ? Bridge::Utf8(value)
               : "";
}
} // namespace

bool Image::Is32Bit() const
{
    return isExecutable && machine == IMAGE_FILE_MACHINE_I386;
}

bool Image::Is64Bit() const
{
    return isExecutable && machine == IMAGE_FILE_MACHINE_AMD64;
}

Image ReadImage(const std::wstring& path)
{
    Image image;
    const File file(path);
    image.error = file.GetError();
    IMAGE_DOS_HEADER dos = {};
    uint32_t signature = 0;
    IMAGE_FILE_HEADER header = {};
    if (image.error != 0 || !file.ReadRecord(0, dos) || dos.e_magic != IMAGE_DOS_SIGNATURE)
    {
        return image;
    }
    const uint32_t offset = static_cast<uint32_t>(dos.e_lfanew);
    const uint32_t optional = offset + static_cast<uint32_t>(sizeof(signature) + sizeof(header));
    IMAGE_DATA_DIRECTORY imports = {};
    if (!file.ReadRecord(offset, signature) || signature != IMAGE_NT_SIGNATURE ||
        !file.ReadRecord(offset + static_cast<uint32_t>(sizeof(signature)), header) ||
        !ReadImportDirectory(file, optional, imports))
    {
        return image;
    }
    Sections sections(header.NumberOfSections);
    const uint32_t size = static_cast<uint32_t>(sections.size() * sizeof(IMAGE_SECTION_HEADER));
    if (file.ReadAt(optional + header.SizeOfOptionalHeader, sections.data(), size) != size)
    {
        return image;
    }
    image.isExecutable = (header.Characteristics & IMAGE_FILE_EXECUTABLE_IMAGE) != 0;
    image.isLibrary = (header.Characteristics & IMAGE_FILE_DLL) != 0;
    image.machine = header.Machine;
    image.imports = ReadImports(file, imports, sections);
    return image;
}

std::string Describe(const Image& image)
{
    if (!image.isExecutable)
    {
        return "no program or library of Windows";
    }
    const std::string kind = image.isLibrary ? " library" : " program";
    switch (image.machine)
    {
    case IMAGE_FILE_MACHINE_I386:
        return "a 32-bit (x86)" + kind;
    case IMAGE_FILE_MACHINE_AMD64:
        return "a 64-bit (x64)" + kind;
    case IMAGE_FILE_MACHINE_ARM64:
        return "a 64-bit (ARM64)" + kind;
    default:
        return "for another processor";
    }
}

std::string ReadTorvaneVersion(const std::wstring& path)
{
    DWORD ignored = 0;
    std::vector<uint8_t> version(GetFileVersionInfoSizeW(path.c_str(), &ignored));
    if (version.empty() ||
        !GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(version.size()), version.data()) ||
        ReadString(version, L"ProductName") != "Torvane")
    {
        return "";
    }
    return ReadString(version, L"ProductVersion");
}
} // namespace Torvane::Doctor
