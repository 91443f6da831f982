#include "bridge/ImageSymbols.h"

#include <algorithm>
#include <stdlib.h>
#include <string.h>
#include <utility>

#ifdef __GNUC__
#include <cxxabi.h>
#endif

namespace Torvane::Bridge
{
namespace
{
// Offsets and values of the PE format, which <winnt.h> has for Windows alone.
constexpr uint16_t dosSignature = 0x5A4D;
constexpr uint64_t headersOffsetOffset = 0x3C;
constexpr uint32_t ntSignature = 0x00004550;
constexpr uint64_t fileHeaderOffset = 4; // from the signature, as the next ones
constexpr size_t fileHeaderSize = 20;
constexpr uint64_t sectionCountOffset = 6;
constexpr uint64_t symbolTableOffset = 12;
constexpr uint64_t symbolCountOffset = 16;
constexpr uint64_t optionalSizeOffset = 20;
constexpr uint64_t characteristicsOffset = 22;
constexpr uint64_t optionalOffset = 24;
constexpr uint64_t exportDirectoryOffset = optionalOffset + 96;
constexpr uint16_t machineX86 = 0x014C;
constexpr uint16_t machineX64 = 0x8664;
constexpr uint16_t machineARM64 = 0xAA64;
constexpr uint16_t magic32 = 0x010B;
constexpr uint16_t libraryFlag = 0x2000;
constexpr size_t sectionSize = 40;
constexpr uint32_t executableFlag = 0x20000000;
constexpr size_t symbolSize = 18;
constexpr uint16_t functionType = 0x20;
constexpr uint8_t externalClass = 2;
constexpr uint8_t staticClass = 3;
constexpr size_t shortNameSize = 8;
constexpr size_t longestName = 4096;
constexpr uint16_t jumpThroughMemory = 0x25FF;

std::string MachineName(uint16_t machine)
{
    switch (machine)
    {
    case machineX64:
        return "64-bit x64";
    case machineARM64:
        return "ARM64";
    default:
        return "another processor";
    }
}
} // namespace

ImageSymbols::ImageSymbols(std::vector<uint8_t> fileBytes)
    : bytes(std::move(fileBytes))
{
    ReadHeaders();
}

template<typename Number>
Number ImageSymbols::Read(uint64_t offset) const
{
    Number number = 0;
    if (offset <= bytes.size() && bytes.size() - offset >= sizeof(number))
    {
        memcpy(&number, bytes.data() + offset, sizeof(number));
    }
    return number;
}

void ImageSymbols::ReadHeaders()
{
    headers = Read<uint32_t>(headersOffsetOffset);
    if (Read<uint16_t>(0) != dosSignature || Read<uint32_t>(headers) != ntSignature)
    {
        error = "it isn't a Windows library";
        isIncomplete = true; // a linker can write the headers last
        return;
    }
    const auto machine = Read<uint16_t>(headers + fileHeaderOffset);
    if (machine != machineX86 || Read<uint16_t>(headers + optionalOffset) != magic32)
    {
        error = "it is built for " + MachineName(machine) + ", but the host is a 32-bit x86 program";
        return;
    }
    uint64_t header = headers + optionalOffset + Read<uint16_t>(headers + optionalSizeOffset);
    uint64_t end = header;
    for (uint32_t i = Read<uint16_t>(headers + sectionCountOffset); i != 0; --i, header += sectionSize)
    {
        const Section section = {Read<uint32_t>(header + 12), Read<uint32_t>(header + 16),
                                 Read<uint32_t>(header + 20),
                                 (Read<uint32_t>(header + 36) & executableFlag) != 0};
        sections.push_back(section);
        end = std::max({end, header + sectionSize, uint64_t{section.fileOffset} + section.size});
    }
    if (const uint64_t symbols = Read<uint32_t>(headers + symbolTableOffset); symbols != 0)
    {
        const uint64_t strings = symbols + Read<uint32_t>(headers + symbolCountOffset) * uint64_t{symbolSize};
        end = std::max(end, strings + std::max<uint32_t>(Read<uint32_t>(strings), sizeof(uint32_t)));
    }
    if (end > bytes.size())
    {
        isIncomplete = true;
        error = "the file ends before its sections do";
        sections.clear();
    }
}

bool ImageSymbols::IsLibrary() const
{
    return (Read<uint16_t>(headers + characteristicsOffset) & libraryFlag) != 0;
}

std::vector<uint8_t> ImageSymbols::FileHeader() const
{
    std::vector<uint8_t> header(fileHeaderSize);
    for (size_t i = 0; i < fileHeaderSize; ++i)
    {
        header[i] = Read<uint8_t>(headers + fileHeaderOffset + i);
    }
    return header;
}

uint64_t ImageSymbols::OffsetOf(uint32_t rva) const
{
    for (const Section& section : sections)
    {
        if (rva >= section.rva && rva - section.rva < section.size)
        {
            return uint64_t{section.fileOffset} + (rva - section.rva);
        }
    }
    return 0;
}

std::string ImageSymbols::StringAt(uint64_t offset, size_t limit) const
{
    std::string string;
    for (; string.size() < limit; ++offset)
    {
        const char character = static_cast<char>(Read<uint8_t>(offset));
        if (character == '\0')
        {
            break;
        }
        string.push_back(character);
    }
    return string;
}

/// Whether code of the image itself begins there: a jump through the table of imports belongs to another module.
bool ImageSymbols::IsFunction(uint32_t rva) const
{
    const auto isIn = [rva](const Section& section) {
        return section.isCode && rva >= section.rva && rva - section.rva < section.size;
    };
    return std::any_of(sections.begin(), sections.end(), isIn) &&
           Read<uint16_t>(OffsetOf(rva)) != jumpThroughMemory;
}

// ---- Exports ----

std::vector<ImageSymbols::Export> ImageSymbols::ReadExports() const
{
    std::vector<Export> exports;
    const auto directoryRva = Read<uint32_t>(headers + exportDirectoryOffset);
    const auto directorySize = Read<uint32_t>(headers + exportDirectoryOffset + 4);
    const uint64_t directory = OffsetOf(directoryRva);
    if (directory == 0)
    {
        return exports;
    }
    const auto functionCount = Read<uint32_t>(directory + 20);
    const uint64_t functions = OffsetOf(Read<uint32_t>(directory + 28));
    const uint64_t names = OffsetOf(Read<uint32_t>(directory + 32));
    const uint64_t ordinals = OffsetOf(Read<uint32_t>(directory + 36));
    // No more than fit into the file, if the count is damaged.
    const uint64_t count = std::min<uint64_t>(Read<uint32_t>(directory + 24), bytes.size() / 4);
    for (uint64_t i = 0; i < count && functions != 0 && names != 0 && ordinals != 0; ++i)
    {
        const auto ordinal = Read<uint16_t>(ordinals + i * 2);
        const auto rva = ordinal < functionCount ? Read<uint32_t>(functions + ordinal * uint64_t{4}) : 0;
        const bool isForwarder = rva >= directoryRva && rva - directoryRva < directorySize;
        const uint64_t name = OffsetOf(Read<uint32_t>(names + i * 4));
        if (rva != 0 && !isForwarder && name != 0)
        {
            exports.push_back({StringAt(name, longestName), rva});
        }
    }
    return exports;
}

std::vector<ImageFunction> ImageSymbols::Exports() const
{
    std::vector<ImageFunction> functions;
    for (const Export& found : ReadExports())
    {
        if (IsFunction(found.rva))
        {
            functions.push_back({found.name, found.rva, false});
        }
    }
    return functions;
}

uint32_t ImageSymbols::FindExport(const std::string& name) const
{
    for (const Export& found : ReadExports())
    {
        if (found.name == name)
        {
            return found.rva;
        }
    }
    return 0;
}

// ---- Symbol table ----

std::string ImageSymbols::SymbolName(size_t symbol) const
{
    const uint64_t symbols = Read<uint32_t>(headers + symbolTableOffset);
    const uint64_t entry = symbols + symbol * symbolSize;
    std::string name;
    if (Read<uint32_t>(entry) == 0)
    {
        const uint64_t strings = symbols + Read<uint32_t>(headers + symbolCountOffset) * uint64_t{symbolSize};
        name = StringAt(strings + Read<uint32_t>(entry + 4), longestName);
    }
    else
    {
        name = StringAt(entry, shortNameSize);
    }
    return name.substr(0, 1) == "_" ? name.substr(1) : name;
}

std::vector<ImageFunction> ImageSymbols::SymbolTable() const
{
    std::vector<ImageFunction> functions;
    const uint64_t symbols = Read<uint32_t>(headers + symbolTableOffset);
    const uint32_t count = symbols == 0 || sections.empty() ? 0 : Read<uint32_t>(headers + symbolCountOffset);
    for (uint32_t i = 0; i < count; ++i)
    {
        const uint64_t entry = symbols + i * uint64_t{symbolSize};
        const auto section = Read<uint16_t>(entry + 12);
        const auto storageClass = Read<uint8_t>(entry + 16);
        if (Read<uint16_t>(entry + 14) == functionType && section != 0 && section <= sections.size() &&
            (storageClass == externalClass || storageClass == staticClass))
        {
            const uint32_t rva = sections[section - 1U].rva + Read<uint32_t>(entry + 8);
            if (IsFunction(rva))
            {
                functions.push_back({SymbolName(i), rva, storageClass == staticClass});
            }
        }
        i += Read<uint8_t>(entry + 17); // auxiliary records
    }
    return functions;
}

std::string ReadableName(const std::string& name)
{
#ifdef __GNUC__
    int status = 0;
    char* demangled = name.compare(0, 2, "_Z") == 0
                          ? abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status)
                          : nullptr;
    if (demangled != nullptr)
    {
        std::string readable = demangled;
        free(demangled); // NOLINT(cppcoreguidelines-no-malloc)
        return readable;
    }
#endif
    return name;
}
} // namespace Torvane::Bridge
