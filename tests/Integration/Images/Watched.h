#pragma once

/// \file
/// Functions of the library `Watched`, which the patches of the tests of the watching Bridge replace. None of them is
/// exported by it.

int Scale(int value);
int Shift(int value);
extern "C" int Tiny();
int CallTwin(int value);
