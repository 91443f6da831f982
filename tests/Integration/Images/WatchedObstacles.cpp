/// \file
/// A patch of functions that can't be replaced: one is too short, and one has a name that two have.

extern "C" int Tiny()
{
    return 1;
}

extern "C" int Twin(int value)
{
    return value + 1;
}
