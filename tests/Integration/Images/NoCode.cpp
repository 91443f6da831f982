/// \file
/// A library without any code, and so without an entry point.

#include <stdint.h>

extern "C"
{
__declspec(dllexport) extern const uint32_t onlyConstant[4] = {1, 2, 3, 4};
}
