#pragma once

/// \file
/// Reads the headers, the import table and the version of an executable file of either word size. Any thread.

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Doctor
{
struct Image
{
    uint32_t error = 0;        ///< of the OS, if the file can't be opened
    bool isExecutable = false; ///< has the headers of a program or library; otherwise nothing below is known
    bool isLibrary = false;
    uint16_t machine = 0;             ///< `IMAGE_FILE_MACHINE_…`
    std::vector<std::string> imports; ///< names of files, as they are written in the table

    bool Is32Bit() const;
    bool Is64Bit() const;
};

Image ReadImage(const std::wstring& path);

/// What an image is, to follow "is": "a 64-bit (x64) program".
std::string Describe(const Image& image);

/// The version of Torvane that a file is for, by its version resource. Empty without one, or of another product.
std::string ReadTorvaneVersion(const std::wstring& path);
} // namespace Torvane::Doctor
