/// \file
/// A library that others import.

extern "C" __declspec(dllexport) int Imported()
{
    return 1;
}
