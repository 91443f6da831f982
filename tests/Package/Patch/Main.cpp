// Calls the function that the patch exports, which works on this program's variables.

#include <Host.h>

#include <stdio.h>
#include <windows.h>

int counter = 5;

int AddToCounter()
{
    return ++counter;
}

int main(int, char** arguments)
{
    printf("%d\n", Change());
    const HMODULE patch = LoadLibraryA(arguments[1]);
    FARPROC change = patch == nullptr ? nullptr : GetProcAddress(patch, "Change");
    if (change == nullptr)
    {
        printf("no patch, error %lu\n", GetLastError());
        return 1;
    }
    printf("%d\n", reinterpret_cast<int (*)()>(reinterpret_cast<void*>(change))());
    return 0;
}
