#pragma once

/// \file
/// Reader of executable image files, 32-bit and 64-bit, in place in a read-only mapped view. Any thread.
///
/// The reader trusts the file beyond the checks of `ParseImage`: offsets, counts and strings that it finds there are used
/// unchecked.

#include "Shared/Container/Array.h"
#include "Shared/Container/DynamicArray.h"
#include "Shared/Filesystem/MappedFile.h"
#include "Shared/Foundation/Result.h"

#include <stddef.h>
#include <stdint.h>
#include <windows.h>

namespace Torvane
{
/// An image file whose headers were checked. Exactly one of the two header pointers is set.
struct ImageFile
{
    MappedFile file;                       ///< owned; all pointers below lie in its view
    const IMAGE_NT_HEADERS32* ntHeaders32; ///< null for a 64-bit image
    const IMAGE_NT_HEADERS64* ntHeaders64; ///< null for a 32-bit image
    const IMAGE_SECTION_HEADER* sections;  ///< the first of `NumberOfSections`
};

/// One row of the section table.
struct ImageSection
{
    uint32_t rva;             ///< `VirtualAddress`
    uint32_t virtualSize;     ///< `VirtualSize`, bytes
    uint32_t rawOffset;       ///< `PointerToRawData`, bytes from the start of the file
    uint32_t rawSize;         ///< `SizeOfRawData`, bytes
    uint32_t characteristics; ///< `Characteristics`
};
static_assert(sizeof(ImageSection) == 20);

/// Sections in the order of the section table.
using ImageSectionList = Array<ImageSection>;

/// Name of an imported module as the import directory spells it.
struct ImportedModuleName
{
    uint32_t length; ///< bytes, without the end mark
    char text[1024]; ///< with its end mark
};
static_assert(sizeof(ImportedModuleName) == 1028);

/// Names in the order of the import directory; the capacity is what the directory's size says.
using ImportedModuleNameList = DynamicArray<ImportedModuleName>;

/// Checks the headers of a mapped file and finds its section table. `e_lfanew` is used unchecked.
///
/// Takes over the mapped file. A failure closes it and clears its fields, except when the machine type is neither x86
/// nor x64: then the file stays open permanently, and the fields are unchanged.
/// \param path for the messages alone.
/// \return the image, to be closed with `CloseImage`; failures have the code 0xFFFFFFFF and are logged at Debug level.
Result<ImageFile> ParseImage(const wchar_t* path, MappedFile& file);

/// Maps a file read-only and parses it. \return the failure of either step unchanged.
Result<ImageFile> OpenImage(const wchar_t* path);

/// Unmaps the view, closes the mapping and the file, and clears all fields.
void CloseImage(ImageFile& image);

/// Copies the section table out of the view.
ImageSectionList GatherImageSections(const ImageFile& image);

/// Finds where in the file the byte at an RVA is. The first section that contains the RVA decides.
///
/// \param count of sections; 0 maps nothing.
/// \return bytes from the start of the file; 0 for memory that has no bytes in the file, and 0 after a Debug line if no
/// section contains the RVA.
uint32_t RvaToFileOffset(uint32_t rva, const ImageSection* sections, uint32_t count);

/// Lists the modules that the import directory names.
///
/// The walk ends at the first descriptor without a name, and nowhere else: neither the directory's size nor the length
/// of a name is tested. A name whose RVA can't be mapped is read at the start of the file.
/// \param count of sections.
/// \return the names; empty if the directory has no room for a descriptor or can't be mapped.
ImportedModuleNameList GatherImportedModuleNames(const ImageFile& image, const ImageSection* sections,
                                                 uint32_t count);

/// Size of the optional header of a 64-bit image in bytes; that of a 32-bit one is 16 bytes shorter.
constexpr size_t imageOptionalHeaderSize = 240;

/// Copies the file header and the optional header out of the view.
///
/// \param fileHeader 20 bytes.
/// \param optionalHeader `imageOptionalHeaderSize` bytes, of which the last 16 become 0 for a 32-bit image.
void ReadImageHeaders(const ImageFile& image, void* fileHeader, void* optionalHeader);

#if defined(_WIN32)
/// \return the size of the image's file in bytes, 0 if the OS doesn't report it.
uint64_t GetImageFileSize(const ImageFile& image);
#endif
} // namespace Torvane
