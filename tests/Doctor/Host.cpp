/// \file
/// A program that imports the function IMPORTED from a library that isn't there when it runs, or that lacks one itself.

extern "C" __declspec(dllimport) int IMPORTED();

int main()
{
    return IMPORTED();
}
