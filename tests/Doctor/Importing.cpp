/// \file
/// A library that imports a function from another one, which isn't there when it is loaded.

extern "C" __declspec(dllimport) int Imported();

extern "C" __declspec(dllexport) int CallImported()
{
    return Imported();
}
