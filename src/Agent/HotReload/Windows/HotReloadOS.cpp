#include "Agent/HotReload/Windows/HotReloadOS.h"

#include "Shared/Executable/Windows/PE.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/ProcessMemory.h"

namespace Torvane
{
namespace
{
/// What the Bridge writes before code that it patches.
constexpr uint32_t patchPrefixSize = 5;
} // namespace

void PrepareSectionsForPatching(const wchar_t* path, void* base)
{
    Result<ImageFile> image = OpenImage(path);
    if (image.error)
    {
        return;
    }

    ImageSectionList sections = GatherImageSections(image.payload);
    for (uint32_t i = 0; i < sections.count; ++i)
    {
        const ImageSection& section = sections.pointer[i];
        if ((section.characteristics & IMAGE_SCN_MEM_EXECUTE) == 0)
        {
            continue;
        }
        LogDebug(TVN_HERE, "Preparing section preceding RVA 0x%X for patching", section.rva);
        MakePageExecutable(static_cast<char*>(base) + section.rva - patchPrefixSize);
    }
    CloseImage(image.payload);
}
} // namespace Torvane
