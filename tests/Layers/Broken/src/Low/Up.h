#pragma once

/* #include "Low/Unit.h" and a variable:
extern int commented; */
#include "High/High.h"
#include "Low/Unit.h"
#include "Missing.h"

#include <stdint.h>
#include <stdio.h>

extern const int state;
extern "C" int function(int (*callback)(int));
extern "C" __declspec(dllimport) int (*functionPointer)(int);
extern template class Template<int>;
