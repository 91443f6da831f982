#include "Agent/HotReload/Windows/HotReloadOS.h"

#include "Shared/Foundation/FixedString.h"
#include "Shared/Process/Windows/ProcessMemory.h"
#include "tests/Support/ImageBuilder.h"
#include "tests/Support/MappedTestFile.h"
#include "tests/Support/ProcessMemoryFixture.h"

#include <map>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr uint32_t executable = IMAGE_SCN_CNT_CODE | IMAGE_SCN_MEM_EXECUTE | IMAGE_SCN_MEM_READ;
constexpr uint32_t readOnly = IMAGE_SCN_CNT_INITIALIZED_DATA | IMAGE_SCN_MEM_READ;

ImageSection Section(uint32_t rva, uint32_t characteristics)
{
    return {rva, testPageSize, 0x400, 0x200, characteristics};
}

std::vector<uint8_t> ImageOf(const std::vector<ImageSection>& sections)
{
    ImageBuilder builder;
    builder.sections = sections;
    return builder.Build();
}

std::string PreparingLine(uint32_t rva)
{
    FixedString text = {};
    text.Format("DBG Preparing section preceding RVA 0x%X for patching", rva);
    return text.text;
}

std::string ConversionLine(const void* page, unsigned oldProtection, unsigned newProtection)
{
    FixedString text = {};
    text.Format("DBG Converting page into executable page: address 0x%p, old protection 0x%X, new "
                "protection 0x%X",
                page, oldProtection, newProtection);
    return text.text;
}

/// Protection of every page of an image in this process.
std::map<uint32_t, DWORD> GetProtections(HMODULE module, uint32_t size)
{
    std::map<uint32_t, DWORD> protections;
    for (uint32_t rva = 0; rva < size; rva += testPageSize)
    {
        protections[rva] = TestPages::GetProtectionOf(reinterpret_cast<const uint8_t*>(module) + rva);
    }
    return protections;
}

DWORD ExecutableTwinOf(DWORD protection)
{
    switch (protection)
    {
    case PAGE_NOACCESS:
        return PAGE_EXECUTE;
    case PAGE_READONLY:
        return PAGE_EXECUTE_READ;
    case PAGE_READWRITE:
        return PAGE_EXECUTE_READWRITE;
    case PAGE_WRITECOPY:
        return PAGE_EXECUTE_WRITECOPY;
    default:
        return protection;
    }
}

class HotReloadOS : public ProcessMemoryFixture
{
};
} // namespace

TEST_F(HotReloadOS, MakesThePageBeforeEachExecutableSectionExecutable)
{
    const TemporaryFile file(ImageOf({Section(0x1000, executable), Section(0x2000, readOnly),
                                      Section(0x4000, executable | IMAGE_SCN_MEM_WRITE)}));
    const TestPages pages(6);
    pages.Protect(0, PAGE_READONLY);
    pages.Protect(3, PAGE_NOACCESS);
    PrepareSectionsForPatching(file.GetPath(), pages.At(0));

    EXPECT_EQ(pages.GetProtection(0), static_cast<DWORD>(PAGE_EXECUTE_READ));
    EXPECT_EQ(pages.GetProtection(1), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(pages.GetProtection(2), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(pages.GetProtection(3), static_cast<DWORD>(PAGE_EXECUTE));
    EXPECT_EQ(pages.GetProtection(4), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(pages.GetProtection(5), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(log.GetLines(), (Lines{PreparingLine(0x1000), ConversionLine(pages.At(0), 0x02, 0x20),
                                     PreparingLine(0x4000), ConversionLine(pages.At(3), 0x01, 0x10)}));
}

TEST_F(HotReloadOS, MakesNoQueryForAnImageWithoutExecutableSections)
{
    const TemporaryFile file(ImageOf({Section(0x1000, readOnly), Section(0x2000, IMAGE_SCN_CNT_CODE)}));
    const TestPages pages(3);
    FakeQuery::Install();
    PrepareSectionsForPatching(file.GetPath(), pages.At(0));
    EXPECT_EQ(FakeQuery::calls, 0u);
    EXPECT_EQ(log.GetLines(), Lines());
    EXPECT_EQ(pages.GetProtection(0), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(pages.GetProtection(1), static_cast<DWORD>(PAGE_READWRITE));
}

TEST_F(HotReloadOS, KeepsThePageBetweenTwoExecutableSectionsInARow)
{
    const TemporaryFile file(ImageOf({Section(0x1000, executable), Section(0x2000, executable)}));
    const TestPages pages(3, PAGE_EXECUTE_READ);
    pages.Protect(0, PAGE_READONLY);
    PrepareSectionsForPatching(file.GetPath(), pages.At(0));
    EXPECT_EQ(pages.GetProtection(1), static_cast<DWORD>(PAGE_EXECUTE_READ));
    EXPECT_EQ(log.GetLines(),
              (Lines{PreparingLine(0x1000), ConversionLine(pages.At(0), 0x02, 0x20), PreparingLine(0x2000)}));
}

TEST_F(HotReloadOS, FollowsTheOrderOfTheSectionTable)
{
    const TemporaryFile file(ImageOf({Section(0x3000, executable), Section(0x1000, executable)}));
    const TestPages pages(4);
    PrepareSectionsForPatching(file.GetPath(), pages.At(0));
    EXPECT_EQ(log.GetLines(), (Lines{PreparingLine(0x3000), ConversionLine(pages.At(2), 0x04, 0x40),
                                     PreparingLine(0x1000), ConversionLine(pages.At(0), 0x04, 0x40)}));
}

TEST_F(HotReloadOS, KeepsAGuardBeforeASection)
{
    const TemporaryFile file(ImageOf({Section(0x1000, executable)}));
    const TestPages pages(2);
    pages.Protect(0, PAGE_READWRITE | PAGE_GUARD);
    PrepareSectionsForPatching(file.GetPath(), pages.At(0));
    EXPECT_EQ(pages.GetProtection(0), 0x140u);
}

TEST_F(HotReloadOS, ChangesThePageThatHoldsTheFiveBytesBeforeAnUnalignedSection)
{
    const TestPages pages(3);
    const TemporaryFile inItsOwnPage(ImageOf({Section(0x1800, executable)}));
    PrepareSectionsForPatching(inItsOwnPage.GetPath(), pages.At(0));
    EXPECT_EQ(pages.GetProtection(0), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(pages.GetProtection(1), static_cast<DWORD>(PAGE_EXECUTE_READWRITE));

    const TemporaryFile acrossTwoPages(ImageOf({Section(0x2004, executable), Section(0x1004, executable)}));
    pages.Protect(1, PAGE_READWRITE);
    PrepareSectionsForPatching(acrossTwoPages.GetPath(), pages.At(0));
    EXPECT_EQ(pages.GetProtection(0), static_cast<DWORD>(PAGE_EXECUTE_READWRITE));
    EXPECT_EQ(pages.GetProtection(1), static_cast<DWORD>(PAGE_EXECUTE_READWRITE));
    EXPECT_EQ(pages.GetProtection(2), static_cast<DWORD>(PAGE_READWRITE));
}

TEST_F(HotReloadOS, ContinuesWithTheNextSectionAfterAFailedQuery)
{
    const TemporaryFile file(ImageOf({Section(0x1000, executable), Section(0x3000, executable)}));
    const TestPages pages(4);
    FakeQuery::Install();
    FakeQuery::firstFailure = 1;
    FakeQuery::failure = static_cast<NTSTATUS>(0xC0000005);
    PrepareSectionsForPatching(file.GetPath(), pages.At(0));
    EXPECT_EQ(pages.GetProtection(0), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(pages.GetProtection(2), static_cast<DWORD>(PAGE_EXECUTE_READWRITE));
    EXPECT_EQ(log.Count("ERR Call to function NtQueryVirtualMemory failed. Error: 0xC0000005"), 1u);
}

TEST_F(HotReloadOS, DoesNothingForAFileThatCannotBeRead)
{
    const TestPages pages(2);
    FakeQuery::Install();
    PrepareSectionsForPatching(L"C:\\no-such-folder\\no-such-file.dll", pages.At(0));
    EXPECT_EQ(FakeQuery::calls, 0u);
    EXPECT_EQ(log.Count("DBG Cannot open file C:\\no-such-folder\\no-such-file.dll with open mode "
                        "0x80000000."),
              1u);
    EXPECT_EQ(pages.GetProtection(0), static_cast<DWORD>(PAGE_READWRITE));
}

TEST_F(HotReloadOS, DoesNothingForAFileThatIsNotAnImage)
{
    const TemporaryFile file(std::vector<uint8_t>(0x1000, 'x'));
    const TestPages pages(2);
    FakeQuery::Install();
    PrepareSectionsForPatching(file.GetPath(), pages.At(0));
    EXPECT_EQ(FakeQuery::calls, 0u);
    EXPECT_EQ(log.GetLines().back(), "DBG Error: -1, 0xFFFFFFFF");
}

TEST_F(HotReloadOS, ClosesTheImageFile)
{
    const TemporaryFile file(ImageOf({Section(0x1000, executable)}));
    const TestPages pages(2);
    PrepareSectionsForPatching(file.GetPath(), pages.At(0));
    const HANDLE exclusive = CreateFileW(file.GetPath(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(exclusive, INVALID_HANDLE_VALUE);
    CloseHandle(exclusive);
}

TEST_F(HotReloadOS, PreparesRealLibrariesAndChangesNoOtherPage)
{
    for (const wchar_t* name : {L"version.dll", L"winmm.dll", L"dbghelp.dll", L"msvcrt.dll"})
    {
        const HMODULE module = LoadLibraryW(name);
        ASSERT_NE(module, nullptr);
        wchar_t path[1024];
        ASSERT_NE(GetModuleFileNameW(module, path, 1024), 0u);

        Result<ImageFile> image = OpenImage(path);
        ASSERT_EQ(image.error, nullptr);
        const uint32_t size = image.payload.ntHeaders32->OptionalHeader.SizeOfImage;
        const std::map<uint32_t, DWORD> before = GetProtections(module, size);
        std::map<uint32_t, DWORD> expected = before;
        const ImageSectionList sections = GatherImageSections(image.payload);
        for (uint32_t i = 0; i < sections.count; ++i)
        {
            if ((sections[i].characteristics & IMAGE_SCN_MEM_EXECUTE) != 0)
            {
                const uint32_t page = (sections[i].rva - 5) & ~(testPageSize - 1);
                expected[page] = ExecutableTwinOf(before.at(page));
            }
        }
        CloseImage(image.payload);
        EXPECT_NE(expected, before);

        PrepareSectionsForPatching(path, module);
        EXPECT_EQ(GetProtections(module, size), expected);

        // Other users can keep the library in the process.
        for (const auto& [rva, protection] : before)
        {
            if (expected[rva] != protection)
            {
                DWORD ignored = 0;
                VirtualProtect(reinterpret_cast<uint8_t*>(module) + rva, testPageSize, protection, &ignored);
            }
        }
        FreeLibrary(module);
    }
}
} // namespace Torvane::Testing
