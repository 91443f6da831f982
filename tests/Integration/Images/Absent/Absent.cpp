/// \file
/// The library that `ImportsAbsent` needs, in a folder where the loader doesn't look.

extern "C" __declspec(dllexport) int AbsentFunction()
{
    return 1;
}
