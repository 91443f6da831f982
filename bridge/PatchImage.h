#pragma once

/// \file
/// What a Bridge has to know of an image file: its exports, and its entry point, which isn't to run in the
/// loader; each object belongs to one thread.
///
/// `LoadLibraryW` calls a library's entry point, while the loader lock is taken and before the Bridge could do
/// anything to the image. A patch's entry point is to run later, once, by `CallEntryPoint`. So the linked file
/// gets `idleEntryPoint` in place of the first six bytes of its entry point, and the bytes that stood there are
/// kept: `CallEntryPoint` puts them there for the time of its call, and the idle ones back afterwards, where the
/// loader comes again for each new thread and when the image goes.

#include "bridge/Commands.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// An entry point that does nothing and says that all is well, in exactly six bytes:
/// 31 C0 `xor eax, eax`, 40 `inc eax`, C2 0C 00 `ret 12`.
constexpr EntryPointCode idleEntryPoint = {{0x31, 0xC0, 0x40, 0xC2, 0x0C, 0x00}};

/// A 32-bit image file, read into memory.
class PatchImage
{
public:
    /// Reads a file. `Error` tells whether it is a whole 32-bit image.
    explicit PatchImage(const std::wstring& path);

    /// Why the file can't be used; empty if it can. Nothing else may be called if it can't.
    const std::string& Error() const
    {
        return error;
    }

    /// Offset from the module base of the export of that name, without leading underscore; 0 if there is none.
    uint32_t FindExport(const std::string& name) const;

    /// Offset of the entry point from the module base; 0 if the image has none.
    uint32_t EntryPoint() const;

    /// The first bytes of the entry point, as they are in the file.
    EntryPointCode EntryCode() const;

    /// Puts `idleEntryPoint` into the image in memory. \return false, with `Error` set, if the image has no entry
    /// point, or if the loader would change one of the six bytes when it moves the image.
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
    std::string TextAt(uint32_t rva) const;

    std::vector<uint8_t> bytes;
    std::vector<Section> sections;
    std::string error;
};
} // namespace Torvane::Bridge
