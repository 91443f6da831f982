// Maps the file that the environment names, when the program or library starts. It is written also if that ends in a crash.
#include "Mutation.h"

#ifdef _WIN32
#include <windows.h>

__attribute__((constructor)) static void MapMutation()
{
    char path[MAX_PATH] = {};
    if (GetEnvironmentVariableA("TORVANE_MUTATION", path, sizeof(path)) == 0)
    {
        return;
    }
    const HANDLE file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
    const HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, 0, nullptr);
    torvaneMutation = static_cast<unsigned char*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    CloseHandle(mapping);
    CloseHandle(file);
}
#else
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>

__attribute__((constructor(101))) static void MapMutation()
{
    const char* path = getenv("TORVANE_MUTATION");
    const int file = path == nullptr ? -1 : open(path, O_RDWR);
    struct stat status = {};
    if (file >= 0 && fstat(file, &status) == 0)
    {
        void* view =
            mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        torvaneMutation = view == MAP_FAILED ? nullptr : static_cast<unsigned char*>(view);
    }
}
#endif
