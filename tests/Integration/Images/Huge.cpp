/// \file
/// A library of some size, most of it without bytes in the file.

#include <stdint.h>

extern "C"
{
__declspec(dllexport) uint8_t hugeData[1024 * 1024] = {1};
__declspec(dllexport) uint8_t hugeMemory[48 * 1024 * 1024];
}
