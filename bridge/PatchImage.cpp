#include "bridge/PatchImage.h"

#include <string.h>

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
constexpr WORD relocationOffsetMask = 0x0FFF;
constexpr WORD relocationTypeShift = 12;
constexpr uint32_t relocatedSize = 4; // bytes that a relocation of 32-bit code can change

std::vector<uint8_t> ReadWholeFile(const std::wstring& path)
{
    std::vector<uint8_t> bytes;
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return bytes;
    }
    bytes.resize(GetFileSize(file, nullptr));
    DWORD count = 0;
    if (!ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr))
    {
        count = 0;
    }
    bytes.resize(count);
    CloseHandle(file);
    return bytes;
}

/// The 32-bit headers; null if the file has none.
const IMAGE_NT_HEADERS32* HeadersOf(const std::vector<uint8_t>& bytes)
{
    if (bytes.size() < sizeof(IMAGE_DOS_HEADER))
    {
        return nullptr;
    }
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(bytes.data());
    const uint64_t offset = static_cast<uint32_t>(dos->e_lfanew);
    if (dos->e_magic != IMAGE_DOS_SIGNATURE || offset + sizeof(IMAGE_NT_HEADERS32) > bytes.size())
    {
        return nullptr;
    }
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS32*>(bytes.data() + offset);
    const bool is32Bit = headers->Signature == IMAGE_NT_SIGNATURE &&
                         headers->OptionalHeader.Magic == IMAGE_NT_OPTIONAL_HDR32_MAGIC;
    return is32Bit ? headers : nullptr;
}

IMAGE_DATA_DIRECTORY DirectoryOf(const std::vector<uint8_t>& bytes, uint32_t index)
{
    return HeadersOf(bytes)->OptionalHeader.DataDirectory[index];
}
} // namespace

PatchImage::PatchImage(const std::wstring& path)
    : bytes(ReadWholeFile(path))
{
    if (bytes.empty())
    {
        Fail("the file can't be read or is empty");
        return;
    }
    ReadHeaders();
}

bool PatchImage::Fail(const std::string& reason)
{
    error = reason;
    return false;
}

bool PatchImage::ReadHeaders()
{
    const IMAGE_NT_HEADERS32* headers = HeadersOf(bytes);
    if (headers == nullptr)
    {
        return Fail("the file isn't a 32-bit image");
    }
    const uint8_t* table =
        reinterpret_cast<const uint8_t*>(&headers->OptionalHeader) + headers->FileHeader.SizeOfOptionalHeader;
    const size_t tableEnd = static_cast<size_t>(table - bytes.data()) +
                            headers->FileHeader.NumberOfSections * sizeof(IMAGE_SECTION_HEADER);
    if (tableEnd > bytes.size())
    {
        return Fail("the file ends within the section table");
    }
    for (uint32_t i = 0; i < headers->FileHeader.NumberOfSections; ++i)
    {
        const auto& header = reinterpret_cast<const IMAGE_SECTION_HEADER*>(table)[i];
        if (uint64_t(header.PointerToRawData) + header.SizeOfRawData > bytes.size())
        {
            return Fail("the file ends before its sections do");
        }
        sections.push_back({header.VirtualAddress, header.PointerToRawData, header.SizeOfRawData});
    }
    return true;
}

const uint8_t* PatchImage::At(uint32_t rva, uint32_t size) const
{
    for (const Section& section : sections)
    {
        if (rva >= section.rva && uint64_t(rva) - section.rva + size <= section.fileSize)
        {
            return bytes.data() + section.fileOffset + (rva - section.rva);
        }
    }
    return nullptr;
}

std::string PatchImage::StringAt(uint32_t rva) const
{
    std::string string;
    for (const uint8_t* character = At(rva, 1); character != nullptr && *character != 0;
         character = At(++rva, 1))
    {
        string.push_back(static_cast<char>(*character));
    }
    return string;
}

uint32_t PatchImage::FindExport(const std::string& name) const
{
    const IMAGE_DATA_DIRECTORY location = DirectoryOf(bytes, IMAGE_DIRECTORY_ENTRY_EXPORT);
    const auto* directory = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(
        At(location.VirtualAddress, sizeof(IMAGE_EXPORT_DIRECTORY)));
    if (directory == nullptr)
    {
        return 0;
    }
    const uint32_t count = directory->NumberOfNames;
    const auto* names = reinterpret_cast<const uint32_t*>(At(directory->AddressOfNames, count * 4));
    const auto* ordinals = reinterpret_cast<const uint16_t*>(At(directory->AddressOfNameOrdinals, count * 2));
    const auto* functions = reinterpret_cast<const uint32_t*>(
        At(directory->AddressOfFunctions, directory->NumberOfFunctions * 4));
    if (names == nullptr || ordinals == nullptr || functions == nullptr)
    {
        return 0;
    }
    for (uint32_t i = 0; i < count; ++i)
    {
        if (ordinals[i] < directory->NumberOfFunctions && StringAt(names[i]) == name)
        {
            return functions[ordinals[i]];
        }
    }
    return 0;
}

std::vector<std::string> PatchImage::Imports() const
{
    std::vector<std::string> names;
    uint32_t place = DirectoryOf(bytes, IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress;
    for (;; place += sizeof(IMAGE_IMPORT_DESCRIPTOR))
    {
        const auto* descriptor =
            reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(At(place, sizeof(IMAGE_IMPORT_DESCRIPTOR)));
        if (descriptor == nullptr || descriptor->Name == 0)
        {
            return names;
        }
        names.push_back(StringAt(descriptor->Name));
    }
}

uint32_t PatchImage::EntryPoint() const
{
    return HeadersOf(bytes)->OptionalHeader.AddressOfEntryPoint;
}

EntryPointCode PatchImage::EntryCode() const
{
    EntryPointCode code = {};
    const uint8_t* place = At(EntryPoint(), entryPointCodeSize);
    if (place != nullptr)
    {
        memcpy(code.bytes, place, entryPointCodeSize);
    }
    return code;
}

bool PatchImage::IsRelocated(uint32_t rva, uint32_t size) const
{
    const IMAGE_DATA_DIRECTORY location = DirectoryOf(bytes, IMAGE_DIRECTORY_ENTRY_BASERELOC);
    const uint32_t end = location.VirtualAddress + location.Size;
    uint32_t place = location.VirtualAddress;
    while (place < end)
    {
        const auto* block =
            reinterpret_cast<const IMAGE_BASE_RELOCATION*>(At(place, sizeof(IMAGE_BASE_RELOCATION)));
        if (block == nullptr || block->SizeOfBlock < sizeof(*block) ||
            At(place, block->SizeOfBlock) == nullptr)
        {
            return false;
        }
        const auto* entries = reinterpret_cast<const WORD*>(block + 1);
        const size_t count = (block->SizeOfBlock - sizeof(*block)) / sizeof(WORD);
        for (size_t i = 0; i < count; ++i)
        {
            const uint32_t changed = block->VirtualAddress + (entries[i] & relocationOffsetMask);
            const bool isReal = (entries[i] >> relocationTypeShift) != IMAGE_REL_BASED_ABSOLUTE;
            if (isReal && changed < rva + size && changed + relocatedSize > rva)
            {
                return true;
            }
        }
        place += block->SizeOfBlock;
    }
    return false;
}

bool PatchImage::IsEntryPointRelocated() const
{
    return IsRelocated(EntryPoint(), entryPointCodeSize);
}

bool PatchImage::MakeEntryPointIdle()
{
    const uint8_t* place = At(EntryPoint(), entryPointCodeSize);
    if (EntryPoint() == 0 || place == nullptr)
    {
        return Fail("the image has no entry point");
    }
    if (IsEntryPointRelocated())
    {
        return Fail("the loader relocates the first bytes of the entry point");
    }
    memcpy(bytes.data() + (place - bytes.data()), idleEntryPoint.bytes, entryPointCodeSize);
    return true;
}

bool PatchImage::Save(const std::wstring& path)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return Fail("the image can't be written");
    }
    DWORD count = 0;
    const bool written = WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) &&
                         count == bytes.size();
    CloseHandle(file);
    return written || Fail("the image can't be written");
}
} // namespace Torvane::Bridge
