/// \file
/// A part of a patch that prints: MinGW's headers define what it calls inline.

#include <stdio.h>
#include <wchar.h>

__attribute__((used)) static void Print()
{
    char text[8];
    wchar_t wide[8];
    snprintf(text, sizeof(text), "%d", 1);
    snwprintf(wide, sizeof(wide) / sizeof(wide[0]), L"%d", 1);
    printf("%s", text);
    wprintf(L"%ls", wide);
}
