#pragma once

extern int counter; // Main.cpp
int AddToCounter(); // Main.cpp
int Scaled(int);    // Scale.cpp, whose state isn't the patch's
extern "C" int Change();
