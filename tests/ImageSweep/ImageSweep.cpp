/// \file
/// Prints what the image reader finds in each image file named on the command line, for CompareImages.py.

#include "Shared/Executable/Windows/PE.h"
#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Logger.h"

#include <stdio.h>

namespace Torvane
{
namespace
{
template<typename NtHeaders>
void PrintHeaders(const NtHeaders& headers)
{
    printf("machine %x\n", static_cast<unsigned>(headers.FileHeader.Machine));
    printf("timestamp %x\n", static_cast<unsigned>(headers.FileHeader.TimeDateStamp));
    printf("base %llx\n", static_cast<unsigned long long>(headers.OptionalHeader.ImageBase));
    printf("size %x\n", static_cast<unsigned>(headers.OptionalHeader.SizeOfImage));
}

/// \return false if the file isn't an image that the reader takes.
bool PrintImage(const char* path)
{
    FixedWideString widePath = {};
    for (const char* character = path; *character != '\0'; ++character) // the libraries' paths are ASCII
    {
        widePath.text[widePath.length++] = static_cast<unsigned char>(*character);
    }
    Result<ImageFile> opened = OpenImage(widePath.text);
    if (opened.error)
    {
        fprintf(stderr, "%s: %s\n", path, opened.error);
        return false;
    }

    ImageFile& image = opened.payload;
    printf("file %s\n", path);
    if (image.ntHeaders32)
    {
        PrintHeaders(*image.ntHeaders32);
    }
    else
    {
        PrintHeaders(*image.ntHeaders64);
    }

    ImageSectionList sections = GatherImageSections(image);
    for (uint32_t i = 0; i < sections.count; ++i)
    {
        const ImageSection& section = sections.pointer[i];
        printf("section %x %x %x %x %x\n", section.rva, section.virtualSize, section.rawOffset,
               section.rawSize, section.characteristics);
    }

    ImportedModuleNameList names = GatherImportedModuleNames(image, sections.pointer, sections.count);
    for (uint32_t i = 0; i < names.count; ++i)
    {
        printf("import %u %s\n", names.pointer[i].length, names.pointer[i].text);
    }
    CloseImage(image);
    return true;
}
} // namespace
} // namespace Torvane

int main(int argumentCount, char** arguments)
{
    Torvane::NullLogger logger;
    Torvane::SetCurrentLogger(&logger);

    bool allRead = true;
    for (int i = 1; i < argumentCount; ++i)
    {
        allRead = Torvane::PrintImage(arguments[i]) && allRead;
    }
    return allRead ? 0 : 1;
}
