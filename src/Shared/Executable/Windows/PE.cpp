#include "Shared/Executable/Windows/PE.h"

#include "Shared/Foundation/Logger.h"

#include <string.h>

namespace Torvane
{
namespace
{
constexpr uint32_t invalidImageCode = 0xFFFFFFFF;

/// Reads a record at any address of the view.
template<typename Record>
Record ReadRecord(const void* address)
{
    Record record;
    memcpy(&record, address, sizeof(record));
    return record;
}

Failure CloseAndFail(MappedFile& file, CheckedFormat<const wchar_t*> format, const wchar_t* path)
{
    CloseMappedFile(file);
    return MakeError(invalidImageCode, format, path);
}

const IMAGE_FILE_HEADER& GetFileHeader(const ImageFile& image)
{
    return image.ntHeaders32 ? image.ntHeaders32->FileHeader : image.ntHeaders64->FileHeader;
}

IMAGE_DATA_DIRECTORY GetImportDirectory(const ImageFile& image)
{
    return image.ntHeaders32 ? image.ntHeaders32->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT]
                             : image.ntHeaders64->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
}
} // namespace

Result<ImageFile> ParseImage(const wchar_t* path, MappedFile& file)
{
    if (ReadRecord<uint16_t>(file.view) != IMAGE_DOS_SIGNATURE)
    {
        return CloseAndFail(file, "Image '%ls' has wrong DOS header signature", path);
    }

    const uint8_t* lfanew = file.view + offsetof(IMAGE_DOS_HEADER, e_lfanew);
    const uint8_t* ntHeaders = file.view + ReadRecord<int32_t>(lfanew);

    ImageFile image = {};
    switch (ReadRecord<uint16_t>(ntHeaders + offsetof(IMAGE_NT_HEADERS32, FileHeader.Machine)))
    {
    case IMAGE_FILE_MACHINE_I386:
        image.ntHeaders32 = reinterpret_cast<const IMAGE_NT_HEADERS32*>(ntHeaders);
        break;

    case IMAGE_FILE_MACHINE_AMD64:
        image.ntHeaders64 = reinterpret_cast<const IMAGE_NT_HEADERS64*>(ntHeaders);
        break;

    default:
        // The mapped file stays open permanently.
        return MakeError(invalidImageCode, "Image '%ls' has invalid machine type", path);
    }

    if (ReadRecord<uint32_t>(ntHeaders) != IMAGE_NT_SIGNATURE)
    {
        return CloseAndFail(file, "Image '%ls' has wrong NT header signature", path);
    }

    const IMAGE_FILE_HEADER& fileHeader = GetFileHeader(image);
    if (fileHeader.NumberOfSections == 0)
    {
        return CloseAndFail(file, "Image '%ls' has invalid number of sections", path);
    }

    image.sections = reinterpret_cast<const IMAGE_SECTION_HEADER*>(
        ntHeaders + offsetof(IMAGE_NT_HEADERS32, OptionalHeader) + fileHeader.SizeOfOptionalHeader);
    image.file = file;
    return Success(image);
}

Result<ImageFile> OpenImage(const wchar_t* path)
{
    Result<MappedFile> file = OpenMappedFile(path);
    if (file.error)
    {
        return Failure{file.error, file.code};
    }
    return ParseImage(path, file.payload);
}

void CloseImage(ImageFile& image)
{
    CloseMappedFile(image.file);
    image = {};
}

ImageSectionList GatherImageSections(const ImageFile& image)
{
    ImageSectionList list(GetFileHeader(image).NumberOfSections);
    for (uint32_t i = 0; i < list.count; ++i)
    {
        const IMAGE_SECTION_HEADER& header = image.sections[i];
        list.pointer[i] = {header.VirtualAddress, header.Misc.VirtualSize, header.PointerToRawData,
                           header.SizeOfRawData, header.Characteristics};
    }
    return list;
}

uint32_t RvaToFileOffset(uint32_t rva, const ImageSection* sections, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i)
    {
        const ImageSection& section = sections[i];
        if (rva >= section.rva && rva < section.rva + section.virtualSize)
        {
            const uint32_t distance = rva - section.rva;
            return distance < section.rawSize ? section.rawOffset + distance : 0;
        }
    }

    LogDebug(TVN_HERE, "Cannot map RVA 0x%X to executable image file offset", rva);
    return 0;
}

ImportedModuleNameList GatherImportedModuleNames(const ImageFile& image, const ImageSection* sections,
                                                 uint32_t count)
{
    const IMAGE_DATA_DIRECTORY directory = GetImportDirectory(image);
    const uint32_t capacity = static_cast<uint32_t>(directory.Size / sizeof(IMAGE_IMPORT_DESCRIPTOR));
    if (capacity == 0)
    {
        return {};
    }
    const uint32_t directoryOffset = RvaToFileOffset(directory.VirtualAddress, sections, count);
    if (directoryOffset == 0)
    {
        return {};
    }

    ImportedModuleNameList names(capacity);
    const uint8_t* view = image.file.view;
    const uint8_t* next = view + directoryOffset;
    while (const uint32_t nameRva = ReadRecord<IMAGE_IMPORT_DESCRIPTOR>(next).Name)
    {
        const char* text = reinterpret_cast<const char*>(view + RvaToFileOffset(nameRva, sections, count));
        ImportedModuleName& name = names.pointer[names.count];
        name.length = static_cast<uint32_t>(strlen(text));
        memcpy(name.text, text, name.length + 1);
        ++names.count;
        next += sizeof(IMAGE_IMPORT_DESCRIPTOR);
    }
    return names;
}

void ReadImageHeaders(const ImageFile& image, void* fileHeader, void* optionalHeader)
{
    memcpy(fileHeader, &GetFileHeader(image), sizeof(IMAGE_FILE_HEADER));
    memset(optionalHeader, 0, imageOptionalHeaderSize);
    if (image.ntHeaders32)
    {
        memcpy(optionalHeader, &image.ntHeaders32->OptionalHeader, sizeof(IMAGE_OPTIONAL_HEADER32));
    }
    else
    {
        memcpy(optionalHeader, &image.ntHeaders64->OptionalHeader, sizeof(IMAGE_OPTIONAL_HEADER64));
    }
}

#if defined(_WIN32)
uint64_t GetImageFileSize(const ImageFile& image)
{
    BY_HANDLE_FILE_INFORMATION information = {};
    GetFileInformationByHandle(image.file.file, &information);
    return (static_cast<uint64_t>(information.nFileSizeHigh) << 32) | information.nFileSizeLow;
}
#endif
} // namespace Torvane
