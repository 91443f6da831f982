#include "Shared/Filesystem/Windows/NamedSharedMemory.h"

#include "Shared/Foundation/Windows/ResultOS.h"

namespace Torvane
{
Result<NamedSharedMemory> CreateNamedSharedMemory(const wchar_t* name, uint32_t size)
{
    const HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, name);
    if (mapping == nullptr)
    {
        return MakeOSError("Cannot create named shared memory %ls with size %zu.", name,
                           static_cast<size_t>(size));
    }
    void* view = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, size);
    if (view == nullptr)
    {
        const Failure failure = MakeOSError("Cannot map view for named shared memory %ls with size %zu.",
                                            name, static_cast<size_t>(size));
        CloseHandle(mapping);
        return failure;
    }
    return Success(NamedSharedMemory{mapping, static_cast<uint8_t*>(view), size});
}

void CloseNamedSharedMemory(NamedSharedMemory& memory)
{
    if (memory.view != nullptr)
    {
        UnmapViewOfFile(memory.view);
        CloseHandle(memory.mapping);
        memory = NamedSharedMemory{};
    }
}
} // namespace Torvane
