/// \file
/// A library as compilers make them: exports, relocations, the runtime's entry point, imports that are there.

#include <stdint.h>
#include <stdlib.h>

#include <windows.h>

namespace
{
int AddOne(int number)
{
    return number + 1;
}

int AddTwo(int number)
{
    return number + 2;
}
} // namespace

extern "C"
{
/// Addresses that the loader has to relocate.
__declspec(dllexport) int (*plainFunctions[])(int) = {AddOne, nullptr, AddTwo};
__declspec(dllexport) const char* plainText = "plain";

__declspec(dllexport) uint32_t plainNumber = 0x12345678;

__declspec(dllexport) int PlainAbsolute(int number)
{
    return abs(number);
}
}
