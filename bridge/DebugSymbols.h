#pragma once

/// \file
/// The names of the functions of an image by its PDB; one thread at a time, as the OS's library for it requires.

#include "bridge/ImageSymbols.h"

#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// What dbghelp.dll finds for the image at that path. Empty if it isn't there, or if there is no PDB beside the image or
/// where the image says that it is.
std::vector<ImageFunction> FunctionsOfPdb(const std::wstring& imagePath);
} // namespace Torvane::Bridge
