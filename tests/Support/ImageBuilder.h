#pragma once

/// \file
/// Lays out small image files in memory, byte by byte, for tests; one thread.

#include "Shared/Executable/Windows/PE.h"

#include <algorithm>
#include <stdint.h>
#include <string.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
/// The parts of an image file; `Build` puts them where the format wants them.
struct ImageBuilder
{
    uint16_t dosSignature = IMAGE_DOS_SIGNATURE;
    uint32_t ntHeadersOffset = 0x80; ///< `e_lfanew`, bytes
    uint32_t ntSignature = IMAGE_NT_SIGNATURE;
    uint16_t machine = IMAGE_FILE_MACHINE_I386;
    uint16_t optionalHeaderSize = 0; ///< `SizeOfOptionalHeader`; 0 takes the one of the machine
    uint32_t importDirectoryRva = 0;
    uint32_t importDirectorySize = 0; ///< bytes
    std::vector<ImageSection> sections = {{0x1000, 0x800, 0x400, 0x800, 0x60000020}};
    std::vector<uint8_t> contents = std::vector<uint8_t>(0x1000); ///< the file below the headers

    /// Puts bytes at an offset of the file.
    void Put(uint32_t offset, const void* bytes, size_t count)
    {
        if (contents.size() < offset + count)
        {
            contents.resize(offset + count);
        }
        memcpy(contents.data() + offset, bytes, count);
    }

    /// Puts an import directory, its end descriptor and after it the names at an offset of the file.
    ///
    /// \param rva at which the byte at `offset` gets loaded.
    void PutImports(uint32_t offset, uint32_t rva, const std::vector<std::string>& names)
    {
        importDirectoryRva = rva;
        importDirectorySize = static_cast<uint32_t>((names.size() + 1) * sizeof(IMAGE_IMPORT_DESCRIPTOR));
        uint32_t nameOffset = importDirectorySize;
        IMAGE_IMPORT_DESCRIPTOR descriptor;
        for (size_t i = 0; i < names.size(); ++i)
        {
            memset(&descriptor, 0x5A, sizeof(descriptor));
            descriptor.Name = rva + nameOffset;
            Put(static_cast<uint32_t>(offset + i * sizeof(descriptor)), &descriptor, sizeof(descriptor));
            Put(offset + nameOffset, names[i].c_str(), names[i].size() + 1);
            nameOffset += static_cast<uint32_t>(names[i].size() + 1);
        }
        memset(&descriptor, 0x5A, sizeof(descriptor));
        descriptor.Name = 0;
        Put(static_cast<uint32_t>(offset + names.size() * sizeof(descriptor)), &descriptor,
            sizeof(descriptor));
    }

    /// \return the bytes of the file.
    std::vector<uint8_t> Build() const
    {
        std::vector<uint8_t> file = contents;
        IMAGE_DOS_HEADER dosHeader = {};
        dosHeader.e_magic = dosSignature;
        dosHeader.e_lfanew = static_cast<int32_t>(ntHeadersOffset);
        memcpy(file.data(), &dosHeader, sizeof(dosHeader));
        if (machine == IMAGE_FILE_MACHINE_AMD64)
        {
            IMAGE_NT_HEADERS64 headers = {};
            headers.OptionalHeader.Magic = 0x20B;
            PutHeaders(file, headers);
        }
        else
        {
            IMAGE_NT_HEADERS32 headers = {};
            headers.OptionalHeader.Magic = 0x10B;
            PutHeaders(file, headers);
        }
        return file;
    }

private:
    template<typename NtHeaders>
    void PutHeaders(std::vector<uint8_t>& file, NtHeaders& headers) const
    {
        const uint16_t size = optionalHeaderSize ? optionalHeaderSize : sizeof(headers.OptionalHeader);
        headers.Signature = ntSignature;
        headers.FileHeader.Machine = machine;
        headers.FileHeader.NumberOfSections = static_cast<uint16_t>(sections.size());
        headers.FileHeader.TimeDateStamp = 0x12345678;
        headers.FileHeader.SizeOfOptionalHeader = size;
        headers.OptionalHeader.SizeOfImage = 0x00ABC000;
        headers.OptionalHeader.NumberOfRvaAndSizes = 16;
        headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT] = {importDirectoryRva,
                                                                              importDirectorySize};
        headers.OptionalHeader.DataDirectory[15] = {0x77777777, 0x88888888};

        size_t end = ntHeadersOffset + offsetof(IMAGE_NT_HEADERS32, OptionalHeader) + size;
        file.resize(std::max(file.size(), end + sections.size() * sizeof(IMAGE_SECTION_HEADER)));
        memcpy(file.data() + ntHeadersOffset, &headers, sizeof(headers));
        for (const ImageSection& section : sections)
        {
            IMAGE_SECTION_HEADER header = {};
            memcpy(header.Name, ".section", sizeof(header.Name));
            header.Misc.VirtualSize = section.virtualSize;
            header.VirtualAddress = section.rva;
            header.SizeOfRawData = section.rawSize;
            header.PointerToRawData = section.rawOffset;
            header.PointerToRelocations = 0x11111111;
            header.PointerToLinenumbers = 0x22222222;
            header.NumberOfRelocations = 0x3333;
            header.NumberOfLinenumbers = 0x4444;
            header.Characteristics = section.characteristics;
            memcpy(file.data() + end, &header, sizeof(header));
            end += sizeof(header);
        }
    }
};
} // namespace Torvane::Testing
