/// \file
/// A library that can't be loaded: what it imports from isn't to be found.

extern "C" __declspec(dllimport) int AbsentFunction();

extern "C" __declspec(dllexport) int CallAbsentFunction()
{
    return AbsentFunction();
}
