#pragma once

/// \file
/// Reads exports and the entry point of an image file, and disables the entry point for the loader; each object belongs
/// to one thread.
///
/// `LoadLibraryW` calls a library's entry point while it owns the loader lock and before the Bridge can change the
/// image. A patch's entry point has to run later, once, by `CallEntryPoint`. So the Bridge replaces the first six bytes
/// of the entry point in the file by `idleEntryPoint` and keeps the original ones. `CallEntryPoint` restores them during
/// its call and puts the idle ones back afterwards: the loader calls the entry point again for each new thread and when
/// the image is unloaded.

#include "bridge/Commands.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// An entry point that does nothing and returns TRUE, in exactly six bytes:
/// 31 C0 `xor eax, eax`, 40 `inc eax`, C2 0C 00 `ret 12`.
constexpr EntryPointCode idleEntryPoint = {{0x31, 0xC0, 0x40, 0xC2, 0x0C, 0x00}};

/// A 32-bit image file, read into memory.
class PatchImage
{
public:
    /// Reads a file. `Error` is empty if it is a complete 32-bit image.
    explicit PatchImage(const std::wstring& path);

    /// Why the file can't be used; empty if it can. If it isn't empty, no other function may be called.
    const std::string& Error() const
    {
        return error;
    }

    /// Offset from the module base of the export of that name, without leading underscore; 0 if there is none.
    uint32_t FindExport(const std::string& name) const;

    /// File names of the libraries that the loader loads with the image.
    std::vector<std::string> Imports() const;

    /// Offset of the entry point from the module base; 0 if the image has none.
    uint32_t EntryPoint() const;

    /// The first bytes of the entry point, as they are in the file.
    EntryPointCode EntryCode() const;

    /// Whether the loader relocates one of the first six bytes of the entry point.
    bool IsEntryPointRelocated() const;

    /// Writes `idleEntryPoint` to the image in memory. \return false, with `Error` set, if the image has no entry point
    /// or the loader relocates one of the six bytes.
    bool MakeEntryPointIdle();

    /// Writes the image to a file. \return false, with `Error` set, if that fails.
    bool Save(const std::wstring& path);

private:
    struct Section
    {
        uint32_t rva;
        uint32_t fileOffset;
        uint32_t fileSize;
    };

    bool Fail(const std::string& reason);
    bool ReadHeaders();
    bool IsRelocated(uint32_t rva, uint32_t size) const;

    /// The bytes at an RVA; null unless `size` of them are in the file.
    const uint8_t* At(uint32_t rva, uint32_t size) const;
    std::string StringAt(uint32_t rva) const;

    std::vector<uint8_t> bytes;
    std::vector<Section> sections;
    std::string error;
};
} // namespace Torvane::Bridge
