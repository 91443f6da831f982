/// \file
/// A library that can be loaded at one address only: it has no relocations.

extern "C" __declspec(dllexport) int FixedNumber()
{
    return 0x5A;
}
