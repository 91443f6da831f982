#pragma once

/// \file
/// The names of the functions in an image file: its exports, and the COFF symbol table that MinGW's linkers leave in an
/// image unless it is stripped. Portable; each object belongs to one thread.

#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// A function of an image, by its name as the linker knows it: without the leading underscore that a symbol table has for
/// 32-bit code, and an export hasn't.
struct ImageFunction
{
    std::string name;
    uint32_t rva;
    bool isLocal; ///< static: other source files may have one of the same name
};

/// A 32-bit image file in memory. Nothing outside of the file is read, whatever its headers say.
class ImageSymbols
{
public:
    explicit ImageSymbols(std::vector<uint8_t> fileBytes);

    /// Why it isn't a 32-bit image for x86; empty if it is one. Otherwise the functions below may be called, but find
    /// nothing.
    const std::string& Error() const
    {
        return error;
    }

    /// Whether the file ends before its sections and its symbol table do, as one that is still being written.
    bool IsIncomplete() const
    {
        return isIncomplete;
    }

    bool IsLibrary() const;

    /// `IMAGE_FILE_HEADER` of the file and the size of the file: what tells two builds of an image apart.
    std::vector<uint8_t> FileHeader() const;
    uint64_t FileSize() const
    {
        return bytes.size();
    }

    /// Functions that are exported by name, except forwarders to other modules and jumps to imported functions.
    std::vector<ImageFunction> Exports() const;

    /// The RVA of an export of any kind; 0 if there is none of that name.
    uint32_t FindExport(const std::string& name) const;

    /// The functions in the COFF symbol table, except jumps to imported functions. Empty if it was stripped.
    std::vector<ImageFunction> SymbolTable() const;

private:
    struct Section
    {
        uint32_t rva;
        uint32_t size; ///< in the file
        uint32_t fileOffset;
        bool isCode;
    };

    struct Export
    {
        std::string name;
        uint32_t rva;
    };

    void ReadHeaders();
    std::vector<Export> ReadExports() const;
    bool IsFunction(uint32_t rva) const;
    std::string SymbolName(size_t symbol) const;

    /// A little-endian number at an offset of the file; 0 outside of it.
    template<typename Number>
    Number Read(uint64_t offset) const;

    /// The offset in the file of an RVA; 0 if it isn't in the file.
    uint64_t OffsetOf(uint32_t rva) const;
    std::string StringAt(uint64_t offset, size_t limit) const;

    std::vector<uint8_t> bytes;
    std::vector<Section> sections;
    std::string error;
    bool isIncomplete = false;
    uint64_t headers = 0; ///< offset of the signature "PE"
};

/// A name as a person would write it: C++ names are demangled if the compiler that built this can do that.
std::string ReadableName(const std::string& name);
} // namespace Torvane::Bridge
