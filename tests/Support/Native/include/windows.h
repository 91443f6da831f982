#pragma once

/// \file
/// What native tests find as <windows.h>: the records of the published Portable Executable format, so that the image
/// reader can be built and tested on this machine. They have no alignment, as they don't in a file. Tests only.

#include <stddef.h>
#include <stdint.h>

#pragma pack(push, 1)

struct IMAGE_DOS_HEADER
{
    uint16_t e_magic; ///< `IMAGE_DOS_SIGNATURE`
    uint16_t e_cblp;
    uint16_t e_cp;
    uint16_t e_crlc;
    uint16_t e_cparhdr;
    uint16_t e_minalloc;
    uint16_t e_maxalloc;
    uint16_t e_ss;
    uint16_t e_sp;
    uint16_t e_csum;
    uint16_t e_ip;
    uint16_t e_cs;
    uint16_t e_lfarlc;
    uint16_t e_ovno;
    uint16_t e_res[4];
    uint16_t e_oemid;
    uint16_t e_oeminfo;
    uint16_t e_res2[10];
    int32_t e_lfanew; ///< offset of the NT headers, bytes from the start of the file
};

struct IMAGE_FILE_HEADER
{
    uint16_t Machine; ///< `IMAGE_FILE_MACHINE_I386`, `IMAGE_FILE_MACHINE_AMD64`, ...
    uint16_t NumberOfSections;
    uint32_t TimeDateStamp;
    uint32_t PointerToSymbolTable;
    uint32_t NumberOfSymbols;
    uint16_t SizeOfOptionalHeader; ///< bytes
    uint16_t Characteristics;
};

struct IMAGE_DATA_DIRECTORY
{
    uint32_t VirtualAddress; ///< RVA
    uint32_t Size;           ///< bytes
};

struct IMAGE_OPTIONAL_HEADER32
{
    uint16_t Magic;
    uint8_t MajorLinkerVersion;
    uint8_t MinorLinkerVersion;
    uint32_t SizeOfCode;
    uint32_t SizeOfInitializedData;
    uint32_t SizeOfUninitializedData;
    uint32_t AddressOfEntryPoint;
    uint32_t BaseOfCode;
    uint32_t BaseOfData;
    uint32_t ImageBase;
    uint32_t SectionAlignment;
    uint32_t FileAlignment;
    uint16_t MajorOperatingSystemVersion;
    uint16_t MinorOperatingSystemVersion;
    uint16_t MajorImageVersion;
    uint16_t MinorImageVersion;
    uint16_t MajorSubsystemVersion;
    uint16_t MinorSubsystemVersion;
    uint32_t Win32VersionValue;
    uint32_t SizeOfImage;
    uint32_t SizeOfHeaders;
    uint32_t CheckSum;
    uint16_t Subsystem;
    uint16_t DllCharacteristics;
    uint32_t SizeOfStackReserve;
    uint32_t SizeOfStackCommit;
    uint32_t SizeOfHeapReserve;
    uint32_t SizeOfHeapCommit;
    uint32_t LoaderFlags;
    uint32_t NumberOfRvaAndSizes;
    IMAGE_DATA_DIRECTORY DataDirectory[16];
};

struct IMAGE_OPTIONAL_HEADER64
{
    uint16_t Magic;
    uint8_t MajorLinkerVersion;
    uint8_t MinorLinkerVersion;
    uint32_t SizeOfCode;
    uint32_t SizeOfInitializedData;
    uint32_t SizeOfUninitializedData;
    uint32_t AddressOfEntryPoint;
    uint32_t BaseOfCode;
    uint64_t ImageBase;
    uint32_t SectionAlignment;
    uint32_t FileAlignment;
    uint16_t MajorOperatingSystemVersion;
    uint16_t MinorOperatingSystemVersion;
    uint16_t MajorImageVersion;
    uint16_t MinorImageVersion;
    uint16_t MajorSubsystemVersion;
    uint16_t MinorSubsystemVersion;
    uint32_t Win32VersionValue;
    uint32_t SizeOfImage;
    uint32_t SizeOfHeaders;
    uint32_t CheckSum;
    uint16_t Subsystem;
    uint16_t DllCharacteristics;
    uint64_t SizeOfStackReserve;
    uint64_t SizeOfStackCommit;
    uint64_t SizeOfHeapReserve;
    uint64_t SizeOfHeapCommit;
    uint32_t LoaderFlags;
    uint32_t NumberOfRvaAndSizes;
    IMAGE_DATA_DIRECTORY DataDirectory[16];
};

struct IMAGE_NT_HEADERS32
{
    uint32_t Signature; ///< `IMAGE_NT_SIGNATURE`
    IMAGE_FILE_HEADER FileHeader;
    IMAGE_OPTIONAL_HEADER32 OptionalHeader;
};

struct IMAGE_NT_HEADERS64
{
    uint32_t Signature; ///< `IMAGE_NT_SIGNATURE`
    IMAGE_FILE_HEADER FileHeader;
    IMAGE_OPTIONAL_HEADER64 OptionalHeader;
};

struct IMAGE_SECTION_HEADER
{
    uint8_t Name[8];
    union
    {
        uint32_t PhysicalAddress;
        uint32_t VirtualSize;
    } Misc;
    uint32_t VirtualAddress;   ///< RVA
    uint32_t SizeOfRawData;    ///< bytes
    uint32_t PointerToRawData; ///< bytes from the start of the file
    uint32_t PointerToRelocations;
    uint32_t PointerToLinenumbers;
    uint16_t NumberOfRelocations;
    uint16_t NumberOfLinenumbers;
    uint32_t Characteristics;
};

struct IMAGE_IMPORT_DESCRIPTOR
{
    union
    {
        uint32_t Characteristics;
        uint32_t OriginalFirstThunk;
    };
    uint32_t TimeDateStamp;
    uint32_t ForwarderChain;
    uint32_t Name; ///< RVA of the module's name, 0 in the descriptor that ends the directory
    uint32_t FirstThunk;
};

#pragma pack(pop)

#define IMAGE_DOS_SIGNATURE 0x5A4D
#define IMAGE_NT_SIGNATURE 0x00004550
#define IMAGE_FILE_MACHINE_I386 0x014C
#define IMAGE_FILE_MACHINE_AMD64 0x8664
#define IMAGE_DIRECTORY_ENTRY_IMPORT 1
#define IMAGE_SCN_CNT_CODE 0x00000020
#define IMAGE_SCN_CNT_INITIALIZED_DATA 0x00000040
#define IMAGE_SCN_MEM_EXECUTE 0x20000000
#define IMAGE_SCN_MEM_READ 0x40000000

static_assert(offsetof(IMAGE_DOS_HEADER, e_lfanew) == 60);
static_assert(sizeof(IMAGE_FILE_HEADER) == 20);
static_assert(sizeof(IMAGE_OPTIONAL_HEADER32) == 224);
static_assert(sizeof(IMAGE_OPTIONAL_HEADER64) == 240);
static_assert(offsetof(IMAGE_NT_HEADERS32, OptionalHeader) == 24);
static_assert(offsetof(IMAGE_NT_HEADERS64, OptionalHeader) == 24);
static_assert(offsetof(IMAGE_NT_HEADERS32, OptionalHeader.DataDirectory) == 24 + 96);
static_assert(offsetof(IMAGE_NT_HEADERS64, OptionalHeader.DataDirectory) == 24 + 112);
static_assert(sizeof(IMAGE_SECTION_HEADER) == 40);
static_assert(sizeof(IMAGE_IMPORT_DESCRIPTOR) == 20);
static_assert(offsetof(IMAGE_IMPORT_DESCRIPTOR, Name) == 12);
