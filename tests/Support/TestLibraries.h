#pragma once

/// \file
/// Libraries that import each other as a test specifies; one thread.

#include "tests/Support/Files.h"

#include <stdint.h>
#include <string.h>
#include <vector>

namespace Torvane::Testing
{
/// What a library imports: a function of a module. Every library here exports "Value".
struct LibraryImport
{
    const char* module;
    const char* function = "Value";
};

/// Lays out the file of a library without code, which the loader takes.
inline std::vector<uint8_t> BuildTestLibrary(const std::string& name,
                                             const std::vector<LibraryImport>& imports,
                                             uint32_t imageSize = 0x3000)
{
    constexpr uint32_t headersSize = 0x400;
    constexpr uint32_t sectionRva = 0x1000;
    std::vector<uint8_t> section;
    const auto put = [&](const void* bytes, size_t count) {
        const uint32_t rva = static_cast<uint32_t>(sectionRva + section.size());
        const uint8_t* first = static_cast<const uint8_t*>(bytes);
        section.insert(section.end(), first, first + count);
        section.resize((section.size() + 3) & ~size_t{3});
        return rva;
    };

    IMAGE_EXPORT_DIRECTORY exports = {};
    exports.Name = put(name.c_str(), name.size() + 1);
    exports.Base = 1;
    exports.NumberOfFunctions = 1;
    exports.NumberOfNames = 1;
    const uint32_t value = put("\x11\x22\x33\x44", 4);
    const uint32_t valueName = put("Value", 6);
    const uint16_t ordinal = 0;
    exports.AddressOfFunctions = put(&value, sizeof(value));
    exports.AddressOfNames = put(&valueName, sizeof(valueName));
    exports.AddressOfNameOrdinals = put(&ordinal, sizeof(ordinal));
    const uint32_t exportsRva = put(&exports, sizeof(exports));

    std::vector<IMAGE_IMPORT_DESCRIPTOR> descriptors(imports.size() + 1);
    for (size_t i = 0; i < imports.size(); ++i)
    {
        std::string hintAndName(2, '\0');
        hintAndName += imports[i].function;
        const uint32_t thunks[2] = {put(hintAndName.c_str(), hintAndName.size() + 1), 0};
        descriptors[i].OriginalFirstThunk = put(thunks, sizeof(thunks));
        descriptors[i].FirstThunk = put(thunks, sizeof(thunks));
        descriptors[i].Name = put(imports[i].module, strlen(imports[i].module) + 1);
    }
    const uint32_t descriptorsSize = static_cast<uint32_t>(descriptors.size() * sizeof(descriptors[0]));
    const uint32_t descriptorsRva = put(descriptors.data(), descriptorsSize);
    const uint32_t sectionSize = static_cast<uint32_t>((section.size() + 0xFFF) & ~size_t{0xFFF});
    section.resize(sectionSize);

    IMAGE_DOS_HEADER dosHeader = {};
    dosHeader.e_magic = IMAGE_DOS_SIGNATURE;
    dosHeader.e_lfanew = 0x80;
    IMAGE_NT_HEADERS32 headers = {};
    headers.Signature = IMAGE_NT_SIGNATURE;
    headers.FileHeader.Machine = IMAGE_FILE_MACHINE_I386;
    headers.FileHeader.NumberOfSections = 1;
    headers.FileHeader.SizeOfOptionalHeader = sizeof(headers.OptionalHeader);
    headers.FileHeader.Characteristics =
        IMAGE_FILE_EXECUTABLE_IMAGE | IMAGE_FILE_32BIT_MACHINE | IMAGE_FILE_DLL;
    IMAGE_OPTIONAL_HEADER32& optional = headers.OptionalHeader;
    optional.Magic = IMAGE_NT_OPTIONAL_HDR32_MAGIC;
    optional.ImageBase = 0x10000000;
    optional.SectionAlignment = 0x1000;
    optional.FileAlignment = 0x200;
    optional.MajorOperatingSystemVersion = 6;
    optional.MajorSubsystemVersion = 6;
    optional.SizeOfImage = imageSize;
    optional.SizeOfHeaders = headersSize;
    optional.Subsystem = IMAGE_SUBSYSTEM_WINDOWS_GUI;
    optional.DllCharacteristics = IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_NX_COMPAT;
    optional.NumberOfRvaAndSizes = IMAGE_NUMBEROF_DIRECTORY_ENTRIES;
    optional.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT] = {exportsRva, sizeof(exports)};
    optional.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT] = {descriptorsRva, descriptorsSize};
    IMAGE_SECTION_HEADER sectionHeader = {};
    memcpy(sectionHeader.Name, ".data", 5);
    sectionHeader.Misc.VirtualSize = imageSize - sectionRva;
    sectionHeader.VirtualAddress = sectionRva;
    sectionHeader.SizeOfRawData = sectionSize;
    sectionHeader.PointerToRawData = headersSize;
    sectionHeader.Characteristics = IMAGE_SCN_CNT_INITIALIZED_DATA | IMAGE_SCN_MEM_READ | IMAGE_SCN_MEM_WRITE;

    std::vector<uint8_t> file(headersSize);
    memcpy(file.data(), &dosHeader, sizeof(dosHeader));
    memcpy(file.data() + dosHeader.e_lfanew, &headers, sizeof(headers));
    memcpy(file.data() + dosHeader.e_lfanew + sizeof(headers), &sectionHeader, sizeof(sectionHeader));
    file.insert(file.end(), section.begin(), section.end());
    return file;
}

/// A folder of this process's own with such libraries. At the end they are freed, and the folder is removed.
class TestLibraries
{
public:
    explicit TestLibraries(const std::wstring& folderName = L"libraries")
    {
        wchar_t longForm[MAX_PATH] = {};
        GetLongPathNameW(TemporaryFilesFolder().c_str(), longForm, MAX_PATH);
        folder = longForm + std::to_wstring(GetCurrentProcessId()) + L" " + folderName;
        CreateDirectoryW(folder.c_str(), nullptr);
    }

    ~TestLibraries()
    {
        while (!loaded.empty())
        {
            FreeLibrary(loaded.back());
            loaded.pop_back();
        }
        RemoveFolder(folder);
    }

    TestLibraries(const TestLibraries&) = delete;
    TestLibraries& operator=(const TestLibraries&) = delete;

    std::wstring PathOf(const std::string& name) const
    {
        return folder + L"\\" + std::wstring(name.begin(), name.end());
    }

    /// \return whether the file was written.
    bool Write(const std::string& name, const std::vector<LibraryImport>& imports = {},
               uint32_t imageSize = 0x3000) const
    {
        const std::vector<uint8_t> bytes = BuildTestLibrary(name, imports, imageSize);
        return WriteWholeFile(PathOf(name), bytes.data(), bytes.size());
    }

    /// Loads a library, and what it imports out of the same folder, until the end.
    HMODULE Load(const std::string& name)
    {
        const HMODULE module = LoadLibraryExW(PathOf(name).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (module != nullptr)
        {
            loaded.push_back(module);
        }
        return module;
    }

    /// Renames a file, which the OS allows for one that is loaded as well.
    bool Rename(const std::string& name) const
    {
        return MoveFileW(PathOf(name).c_str(), (PathOf(name) + L".renamed").c_str());
    }

    /// Opens a file so that nobody else can. The caller closes it.
    HANDLE Lock(const std::string& name) const
    {
        return CreateFileW(PathOf(name).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    }

private:
    std::wstring folder;
    std::vector<HMODULE> loaded;
};
} // namespace Torvane::Testing
