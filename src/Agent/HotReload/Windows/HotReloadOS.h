#pragma once

/// \file
/// Makes a loaded image ready to be patched by the Bridge; any thread, nothing is shared.

namespace Torvane
{
/// Makes every page executable that holds the last five bytes before an executable section of an image.
///
/// The sections are read from the file. Logs one Debug line for each executable section. A file that can't be
/// read or isn't an image leaves everything as it is, beyond what the image reader has logged; a page that
/// can't be changed doesn't stop the others. The changes are never undone.
/// \param path of the image's file, UTF-16.
/// \param base address at which the same image is loaded in this process.
void PrepareSectionsForPatching(const wchar_t* path, void* base);
} // namespace Torvane
