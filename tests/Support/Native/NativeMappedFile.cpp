#include "tests/Support/Native/NativeMappedFile.h"

#include "Shared/Foundation/BoundedFormat.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Torvane
{
namespace
{
constexpr uint32_t genericRead = 0x80000000;

// The mapping handle's place holds the size of the view, 0 for a buffer that was lent.
void* AsMapping(size_t size)
{
    return reinterpret_cast<void*>(size);
}

size_t SizeOfMapping(const MappedFile& file)
{
    return reinterpret_cast<size_t>(file.mapping);
}
} // namespace

uint32_t closedMappedFiles = 0;
const uint8_t* lastClosedView = nullptr;

Result<MappedFile> OpenMappedFile(const wchar_t* path)
{
    char narrowPath[4096];
    FormatBounded(narrowPath, sizeof(narrowPath), "%ls", path);
    const int descriptor = open(narrowPath, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        return MakeError(static_cast<uint32_t>(errno), "Cannot open file %ls with open mode 0x%X.", path,
                         genericRead);
    }

    struct stat status = {};
    fstat(descriptor, &status);
    const size_t size = static_cast<size_t>(status.st_size);
    void* view = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
    const uint32_t code = static_cast<uint32_t>(errno);
    close(descriptor);
    if (view == MAP_FAILED)
    {
        return MakeError(code, "Cannot create mapped file %ls with open mode 0x%X.", path, genericRead);
    }
    return Success(MappedFile{nullptr, AsMapping(size), static_cast<const uint8_t*>(view)});
}

MappedFile LendAsMappedFile(const void* buffer)
{
    return {nullptr, AsMapping(0), static_cast<const uint8_t*>(buffer)};
}

void CloseMappedFile(MappedFile& file)
{
    if (SizeOfMapping(file) != 0)
    {
        munmap(const_cast<uint8_t*>(file.view), SizeOfMapping(file));
    }
    lastClosedView = file.view;
    file = {};
    ++closedMappedFiles;
}
} // namespace Torvane
