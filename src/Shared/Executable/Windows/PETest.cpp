#include "Shared/Executable/Windows/PE.h"

#include "tests/Support/ImageBuilder.h"
#include "tests/Support/MappedTestFile.h"
#include "tests/Support/RecordedLog.h"

#if defined(_WIN32)
#include "Shared/Memory/Windows/MemoryDefaultAllocators.h"
#include "tests/Support/FakeImport.h"
#endif

#include <gtest/gtest.h>

namespace Torvane::Testing
{
namespace
{
const std::vector<std::string> noLines;

/// What `ParseImage` logs when it fails.
std::vector<std::string> FailureLines(const std::string& path, const std::string& words)
{
    return {"DBG Image '" + path + "' " + words, "DBG Error: -1, 0xFFFFFFFF"};
}

std::string NameOf(const ImportedModuleNameList& names, uint32_t index)
{
    const ImportedModuleName& name = names.pointer[index];
    EXPECT_EQ(name.length, strlen(name.text));
    return std::string(name.text, name.length);
}

/// A built image, mapped and parsed, closed at the end of the test.
class ParsedImage
{
public:
    explicit ParsedImage(const ImageBuilder& builder)
        : mapped(builder.Build())
        , parsed(ParseImage(L"test.dll", mapped.file))
    {
        EXPECT_EQ(parsed.error, nullptr);
    }

    ~ParsedImage()
    {
        CloseImage(parsed.payload);
    }

    const ImageFile& Get() const
    {
        return parsed.payload;
    }

    ImportedModuleNameList GatherNames() const
    {
        ImageSectionList sections = GatherImageSections(Get());
        return GatherImportedModuleNames(Get(), sections.pointer, sections.count);
    }

private:
    MappedTestFile mapped;
    Result<ImageFile> parsed;
};

const ImageSection mixedSections[] = {
    {0x1000, 0x0800, 0x0400, 0x0200, 0x60000020}, // longer in memory than in the file
    {0x2000, 0x1000, 0x0000, 0x0000, 0xC0000080}, // nothing in the file
    {0x2800, 0x0100, 0x0600, 0x0100, 0x40000040}, // in the middle of the one before
    {0x4000, 0x0010, 0x0800, 0x0200, 0x40000040}, // longer in the file than in memory
};
constexpr uint32_t mixedSectionCount = 4;

class PE : public testing::Test
{
protected:
#if defined(_WIN32)
    PE()
    {
        StartupMemorySystem();
        log.Clear();
        log.Clear();
    }

    ~PE() override
    {
        ShutdownMemorySystem();
    }
#endif

    void ExpectClosedFailure(const ImageBuilder& builder, const char* format, const std::string& words)
    {
        MappedTestFile mapped(builder.Build());
        log.Clear();
        const Result<ImageFile> result = ParseImage(L"C:\\folder\\a.dll", mapped.file);
        EXPECT_STREQ(result.error, format);
        EXPECT_EQ(result.code, 0xFFFFFFFFu);
        EXPECT_EQ(log.GetLines(), FailureLines("C:\\folder\\a.dll", words));
        EXPECT_TRUE(mapped.watch.IsClosed());
        EXPECT_EQ(mapped.file.file, nullptr);
        EXPECT_EQ(mapped.file.mapping, nullptr);
        EXPECT_EQ(mapped.file.view, nullptr);
    }

    void ExpectMachineTypeFailure(const ImageBuilder& builder)
    {
        MappedTestFile mapped(builder.Build());
        const MappedFile before = mapped.file;
        const Result<ImageFile> result = ParseImage(L"a.dll", mapped.file);
        EXPECT_STREQ(result.error, "Image '%ls' has invalid machine type");
        EXPECT_EQ(result.code, 0xFFFFFFFFu);
        EXPECT_EQ(log.GetLines(), FailureLines("a.dll", "has invalid machine type"));
        EXPECT_TRUE(mapped.watch.IsOpen());
        EXPECT_EQ(mapped.file.file, before.file);
        EXPECT_EQ(mapped.file.mapping, before.mapping);
        EXPECT_EQ(mapped.file.view, before.view);
        CloseMappedFile(mapped.file);
    }

    RecordedLog log;
};
} // namespace

TEST_F(PE, ParsesA32BitImage)
{
    MappedTestFile mapped(ImageBuilder().Build());
    const MappedFile before = mapped.file;
    Result<ImageFile> result = ParseImage(L"a.dll", mapped.file);
    ASSERT_EQ(result.error, nullptr);
    const ImageFile& image = result.payload;
    EXPECT_EQ(image.file.file, before.file);
    EXPECT_EQ(image.file.mapping, before.mapping);
    EXPECT_EQ(image.file.view, before.view);
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(image.ntHeaders32), before.view + 0x80);
    EXPECT_EQ(image.ntHeaders64, nullptr);
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(image.sections), before.view + 0x80 + 24 + 224);
    EXPECT_EQ(log.GetLines(), noLines);
    EXPECT_TRUE(mapped.watch.IsOpen());
    CloseImage(result.payload);
}

TEST_F(PE, ParsesA64BitImage)
{
    ImageBuilder builder;
    builder.machine = IMAGE_FILE_MACHINE_AMD64;
    const ParsedImage parsed(builder);
    const ImageFile& image = parsed.Get();
    EXPECT_EQ(image.ntHeaders32, nullptr);
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(image.ntHeaders64), image.file.view + 0x80);
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(image.sections), image.file.view + 0x80 + 24 + 240);
}

TEST_F(PE, FollowsLfanewAndSizeOfOptionalHeaderToTheSectionTable)
{
    ImageBuilder builder;
    builder.ntHeadersOffset = 0x345; // at an odd address, too
    builder.optionalHeaderSize = 301;
    const ParsedImage parsed(builder);
    const ImageFile& image = parsed.Get();
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(image.ntHeaders32), image.file.view + 0x345);
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(image.sections), image.file.view + 0x345 + 24 + 301);
    const ImageSectionList sections = GatherImageSections(image);
    ASSERT_EQ(sections.count, 1u);
    EXPECT_EQ(sections.pointer[0].rva, 0x1000u);
}

TEST_F(PE, FollowsLfanewWhereverItPoints)
{
    // To headers before the view: the offset is signed, and nothing checks it.
    constexpr size_t distance = 0x2000;
    const std::vector<uint8_t> image = ImageBuilder().Build();
    std::vector<uint8_t> memory(2 * distance);
    memcpy(memory.data(), image.data(), image.size());
    const int32_t lfanew = 0x80 - int32_t{distance};
    uint8_t* view = memory.data() + distance;
    memcpy(view, "MZ", 2);
    memcpy(view + offsetof(IMAGE_DOS_HEADER, e_lfanew), &lfanew, sizeof(lfanew));
    MappedFile file = {nullptr, nullptr, view};
    const Result<ImageFile> result = ParseImage(L"wild.dll", file);
    ASSERT_EQ(result.error, nullptr);
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(result.payload.ntHeaders32), memory.data() + 0x80);
    EXPECT_EQ(log.GetLines(), noLines);
}

TEST_F(PE, ClosesAFileWithAWrongDosSignature)
{
    ImageBuilder builder;
    builder.dosSignature = 0x4D5A;
    ExpectClosedFailure(builder, "Image '%ls' has wrong DOS header signature",
                        "has wrong DOS header signature");
}

TEST_F(PE, ClosesAFileWithAWrongNtSignature)
{
    for (const uint16_t machine : {IMAGE_FILE_MACHINE_I386, IMAGE_FILE_MACHINE_AMD64})
    {
        ImageBuilder builder;
        builder.machine = machine;
        builder.ntSignature = 0x00014550;
        ExpectClosedFailure(builder, "Image '%ls' has wrong NT header signature",
                            "has wrong NT header signature");
    }
}

TEST_F(PE, ClosesAFileWithoutSections)
{
    for (const uint16_t machine : {IMAGE_FILE_MACHINE_I386, IMAGE_FILE_MACHINE_AMD64})
    {
        ImageBuilder builder;
        builder.machine = machine;
        builder.sections.clear();
        ExpectClosedFailure(builder, "Image '%ls' has invalid number of sections",
                            "has invalid number of sections");
    }
}

TEST_F(PE, ReportsAWrongNtSignatureBeforeTheMissingSections)
{
    ImageBuilder builder;
    builder.ntSignature = 0;
    builder.sections.clear();
    ExpectClosedFailure(builder, "Image '%ls' has wrong NT header signature",
                        "has wrong NT header signature");
}

TEST_F(PE, LeavesAFileOfAnotherMachineTypeOpen)
{
    ImageBuilder builder;
    builder.machine = 0x01C4;
    ExpectMachineTypeFailure(builder);
}

TEST_F(PE, ReportsAnUnknownMachineTypeBeforeAWrongNtSignature)
{
    ImageBuilder builder;
    builder.machine = 0xAA64;
    builder.ntSignature = 0;
    ExpectMachineTypeFailure(builder);
}

TEST_F(PE, OpensAndClosesAnImageFile)
{
    const TemporaryFile file(ImageBuilder().Build());
    Result<ImageFile> image = OpenImage(file.GetPath());
    ASSERT_EQ(image.error, nullptr);
    EXPECT_NE(image.payload.ntHeaders32, nullptr);
    const MappedFileWatch watch(image.payload.file);
    EXPECT_TRUE(watch.IsOpen());
    CloseImage(image.payload);
    EXPECT_TRUE(watch.IsClosed());
    EXPECT_EQ(image.payload.file.file, nullptr);
    EXPECT_EQ(image.payload.file.mapping, nullptr);
    EXPECT_EQ(image.payload.file.view, nullptr);
    EXPECT_EQ(image.payload.ntHeaders32, nullptr);
    EXPECT_EQ(image.payload.ntHeaders64, nullptr);
    EXPECT_EQ(image.payload.sections, nullptr);
}

TEST_F(PE, HandsOnTheFailureToOpenAFile)
{
    const Result<ImageFile> image = OpenImage(L"no-such-folder/no-such-file.dll");
    EXPECT_STREQ(image.error, "Cannot open file %ls with open mode 0x%X.");
    EXPECT_TRUE(image.code == 2 || image.code == 3) << image.code;
    EXPECT_EQ(log.Count("DBG Cannot open file no-such-folder/no-such-file.dll with open mode 0x80000000."),
              1u);
}

TEST_F(PE, FailsToMapAnEmptyFile)
{
    const TemporaryFile file({});
    const Result<ImageFile> image = OpenImage(file.GetPath());
    EXPECT_STREQ(image.error, "Cannot create mapped file %ls with open mode 0x%X.");
}

TEST_F(PE, RejectsATinyFile)
{
    for (const char* text : {"M", "Z", "ZM"})
    {
        const TemporaryFile file(std::vector<uint8_t>(text, text + strlen(text)));
        const Result<ImageFile> image = OpenImage(file.GetPath());
        EXPECT_STREQ(image.error, "Image '%ls' has wrong DOS header signature");
    }
}

TEST_F(PE, GathersTheFieldsOfAllSectionsInTheOrderOfTheTable)
{
    for (const uint16_t machine : {IMAGE_FILE_MACHINE_I386, IMAGE_FILE_MACHINE_AMD64})
    {
        ImageBuilder builder;
        builder.machine = machine;
        builder.sections = {{0x5000, 0x51, 0x52, 0x53, 0xF0000054}, {0x1000, 0x11, 0x12, 0x13, 0x14}};
        const ParsedImage image(builder);
        const ImageSectionList sections = GatherImageSections(image.Get());
        ASSERT_EQ(sections.count, 2u);
        EXPECT_EQ(sections.pointer[0].rva, 0x5000u);
        EXPECT_EQ(sections.pointer[0].virtualSize, 0x51u);
        EXPECT_EQ(sections.pointer[0].rawOffset, 0x52u);
        EXPECT_EQ(sections.pointer[0].rawSize, 0x53u);
        EXPECT_EQ(sections.pointer[0].characteristics, 0xF0000054u);
        EXPECT_EQ(sections.pointer[1].rva, 0x1000u);
        EXPECT_EQ(sections.pointer[1].virtualSize, 0x11u);
        EXPECT_EQ(sections.pointer[1].rawOffset, 0x12u);
        EXPECT_EQ(sections.pointer[1].rawSize, 0x13u);
        EXPECT_EQ(sections.pointer[1].characteristics, 0x14u);
    }
}

TEST_F(PE, MapsTheFirstAndTheLastByteOfASection)
{
    EXPECT_EQ(RvaToFileOffset(0x1000, mixedSections, mixedSectionCount), 0x400u);
    EXPECT_EQ(RvaToFileOffset(0x11FF, mixedSections, mixedSectionCount), 0x5FFu);
    EXPECT_EQ(RvaToFileOffset(0x400F, mixedSections, mixedSectionCount), 0x80Fu);
    EXPECT_EQ(log.GetLines(), noLines);
}

TEST_F(PE, MapsBytesAfterTheRawSizeToZeroWithoutALine)
{
    EXPECT_EQ(RvaToFileOffset(0x1200, mixedSections, mixedSectionCount), 0u);
    EXPECT_EQ(RvaToFileOffset(0x17FF, mixedSections, mixedSectionCount), 0u);
    EXPECT_EQ(log.GetLines(), noLines);
}

TEST_F(PE, MapsEveryByteOfASectionWithoutRawDataToZero)
{
    for (uint32_t rva = 0x2000; rva < 0x3000; ++rva)
    {
        ASSERT_EQ(RvaToFileOffset(rva, mixedSections, mixedSectionCount), 0u);
    }
    EXPECT_EQ(log.GetLines(), noLines);
}

TEST_F(PE, LetsTheFirstSectionThatHoldsAnRvaDecide)
{
    EXPECT_EQ(RvaToFileOffset(0x2810, mixedSections, mixedSectionCount), 0u);
    EXPECT_EQ(RvaToFileOffset(0x2810, mixedSections + 2, 2), 0x610u);
}

TEST_F(PE, TakesASectionThatEndsAfterTheAddressSpaceForOneThatEndsBeforeItsStart)
{
    const ImageSection wrapping[] = {{0xFFFFF000, 0x2000, 0x400, 0x2000, 0},
                                     {0x800, 0x100, 0x9000, 0x100, 0}};
    EXPECT_EQ(RvaToFileOffset(0xFFFFF800, wrapping, 2), 0u);
    EXPECT_EQ(RvaToFileOffset(0xFFFFFFFF, wrapping, 2), 0u);
    EXPECT_EQ(RvaToFileOffset(0x810, wrapping, 2), 0x9010u);
    EXPECT_EQ(log.GetLines(),
              (std::vector<std::string>{"DBG Cannot map RVA 0xFFFFF800 to executable image file offset",
                                        "DBG Cannot map RVA 0xFFFFFFFF to executable image file offset"}));
    // One that ends with the address space ends at 0 as well.
    const ImageSection last = {0xFFFFF000, 0x1000, 0x400, 0x1000, 0};
    EXPECT_EQ(RvaToFileOffset(0xFFFFF000, &last, 1), 0u);
}

TEST_F(PE, LogsAnRvaThatNoSectionHolds)
{
    EXPECT_EQ(RvaToFileOffset(0x0FFF, mixedSections, mixedSectionCount), 0u);
    EXPECT_EQ(RvaToFileOffset(0x1800, mixedSections, mixedSectionCount), 0u);
    EXPECT_EQ(RvaToFileOffset(0x4010, mixedSections, mixedSectionCount), 0u);
    EXPECT_EQ(RvaToFileOffset(0xDEAD, nullptr, 0), 0u);
    EXPECT_EQ(log.GetLines(),
              (std::vector<std::string>{"DBG Cannot map RVA 0xFFF to executable image file offset",
                                        "DBG Cannot map RVA 0x1800 to executable image file offset",
                                        "DBG Cannot map RVA 0x4010 to executable image file offset",
                                        "DBG Cannot map RVA 0xDEAD to executable image file offset"}));
}

TEST_F(PE, GathersImportedModuleNamesInTheOrderOfTheDirectory)
{
    for (const uint16_t machine : {IMAGE_FILE_MACHINE_I386, IMAGE_FILE_MACHINE_AMD64})
    {
        ImageBuilder builder;
        builder.machine = machine;
        builder.PutImports(0x500, 0x1100, {"KERNEL32.dll", "a", "msvcp140.DLL"});
        const ParsedImage image(builder);
        const ImportedModuleNameList names = image.GatherNames();
        ASSERT_EQ(names.count, 3u);
        EXPECT_EQ(names.capacity, 4u);
        EXPECT_EQ(NameOf(names, 0), "KERNEL32.dll");
        EXPECT_EQ(NameOf(names, 1), "a");
        EXPECT_EQ(NameOf(names, 2), "msvcp140.DLL");
    }
}

TEST_F(PE, GivesNoNamesWithoutAnImportDirectory)
{
    const ParsedImage image{ImageBuilder()};
    const ImportedModuleNameList names = image.GatherNames();
    EXPECT_EQ(names.count, 0u);
    EXPECT_EQ(names.capacity, 0u);
    EXPECT_EQ(names.pointer, nullptr);
    EXPECT_EQ(log.GetLines(), noLines);
}

TEST_F(PE, TakesAnImportDirectoryOf19BytesForEmptyAndOf20BytesForOneEntry)
{
    ImageBuilder builder;
    builder.PutImports(0x500, 0x1100, {"one.dll"});
    builder.importDirectorySize = 19;
    EXPECT_EQ(ParsedImage(builder).GatherNames().capacity, 0u);
    EXPECT_EQ(ParsedImage(builder).GatherNames().count, 0u);

    builder.importDirectorySize = 20;
    const ImportedModuleNameList names = ParsedImage(builder).GatherNames();
    EXPECT_EQ(names.capacity, 1u);
    ASSERT_EQ(names.count, 1u);
    EXPECT_EQ(NameOf(names, 0), "one.dll");
}

TEST_F(PE, EndsTheWalkAtTheFirstDescriptorWithoutAName)
{
    ImageBuilder builder;
    builder.PutImports(0x500, 0x1100, {"one.dll", "two.dll", "three.dll"});
    const uint32_t noName = 0;
    builder.Put(0x500 + 20 + offsetof(IMAGE_IMPORT_DESCRIPTOR, Name), &noName, sizeof(noName));
    const ImportedModuleNameList names = ParsedImage(builder).GatherNames();
    EXPECT_EQ(names.capacity, 4u);
    ASSERT_EQ(names.count, 1u);
    EXPECT_EQ(NameOf(names, 0), "one.dll");
}

TEST_F(PE, GivesNoNamesIfTheImportDirectoryHasNoBytesInTheFile)
{
    ImageBuilder builder;
    builder.PutImports(0x500, 0x1100, {"one.dll"});
    builder.importDirectoryRva = 0x9000;
    EXPECT_EQ(ParsedImage(builder).GatherNames().count, 0u);
    EXPECT_EQ(log.GetLines(),
              std::vector<std::string>{"DBG Cannot map RVA 0x9000 to executable image file offset"});

    builder.importDirectoryRva = 0x2000;
    builder.sections.push_back({0x2000, 0x1000, 0, 0, 0xC0000080});
    const ImportedModuleNameList names = ParsedImage(builder).GatherNames();
    EXPECT_EQ(names.count, 0u);
    EXPECT_EQ(names.capacity, 0u);
    EXPECT_EQ(log.GetLines().size(), 1u);
}

TEST_F(PE, GivesNoNamesWithoutSectionsToMapThem)
{
    ImageBuilder builder;
    builder.PutImports(0x500, 0x1100, {"one.dll"});
    const ParsedImage image(builder);
    EXPECT_EQ(GatherImportedModuleNames(image.Get(), nullptr, 0).count, 0u);
}

TEST_F(PE, ReadsANameThatCannotBeMappedAtTheStartOfTheFile)
{
    ImageBuilder builder;
    builder.PutImports(0x500, 0x1100, {"one.dll", "two.dll"});
    const uint32_t nowhere = 0x9000;
    builder.Put(0x500 + offsetof(IMAGE_IMPORT_DESCRIPTOR, Name), &nowhere, sizeof(nowhere));
    const ImportedModuleNameList names = ParsedImage(builder).GatherNames();
    ASSERT_EQ(names.count, 2u);
    EXPECT_EQ(NameOf(names, 0), "MZ");
    EXPECT_EQ(NameOf(names, 1), "two.dll");
    EXPECT_EQ(log.GetLines(),
              std::vector<std::string>{"DBG Cannot map RVA 0x9000 to executable image file offset"});
}

TEST_F(PE, KeepsANameOf1023BytesWhole)
{
    const std::string longest(1023, 'n');
    ImageBuilder builder;
    builder.PutImports(0x500, 0x1100, {"", longest, "short.dll"});
    const ImportedModuleNameList names = ParsedImage(builder).GatherNames();
    ASSERT_EQ(names.count, 3u);
    EXPECT_EQ(NameOf(names, 0), "");
    EXPECT_EQ(NameOf(names, 1), longest);
    EXPECT_EQ(NameOf(names, 2), "short.dll");
}

TEST_F(PE, KeepsALastNameOf1023BytesWithinTheBlock)
{
    // The native build has a sanitizer that sees a byte after the block.
    const std::string longest(1023, 'n');
    ImageBuilder builder;
    builder.PutImports(0x500, 0x1100, {"one.dll", longest});
    builder.importDirectorySize = 40;
    const ImportedModuleNameList names = ParsedImage(builder).GatherNames();
    EXPECT_EQ(names.capacity, 2u);
    ASSERT_EQ(names.count, 2u);
    EXPECT_EQ(NameOf(names, 1), longest);
}

TEST_F(PE, CopiesTheHeadersOfA32BitImageAndClearsTheRest)
{
    const ParsedImage image{ImageBuilder()};
    uint8_t fileHeader[20];
    uint8_t optionalHeader[240];
    memset(optionalHeader, 0xEE, sizeof(optionalHeader));
    ReadImageHeaders(image.Get(), fileHeader, optionalHeader);
    const uint8_t* ntHeaders = image.Get().file.view + 0x80;
    EXPECT_EQ(memcmp(fileHeader, ntHeaders + 4, 20), 0);
    EXPECT_EQ(memcmp(optionalHeader, ntHeaders + 24, 224), 0);
    EXPECT_EQ(optionalHeader[223], 0x88);
    for (uint32_t i = 224; i < 240; ++i)
    {
        EXPECT_EQ(optionalHeader[i], 0) << i;
    }
}

TEST_F(PE, CopiesTheHeadersOfA64BitImage)
{
    ImageBuilder builder;
    builder.machine = IMAGE_FILE_MACHINE_AMD64;
    const ParsedImage image(builder);
    uint8_t fileHeader[20];
    uint8_t optionalHeader[240];
    ReadImageHeaders(image.Get(), fileHeader, optionalHeader);
    const uint8_t* ntHeaders = image.Get().file.view + 0x80;
    EXPECT_EQ(memcmp(fileHeader, ntHeaders + 4, 20), 0);
    EXPECT_EQ(memcmp(optionalHeader, ntHeaders + 24, 240), 0);
    EXPECT_EQ(optionalHeader[239], 0x88);
}

#if defined(_WIN32)
namespace
{
/// Blocks have room after their end, for what writes past it.
class RoomAfterBlocks
{
private:
    struct Allocate
    {
        LPVOID operator()(decltype(&HeapAlloc) real, HANDLE heap, DWORD flags, SIZE_T size) const
        {
            return real(heap, flags, size + 0x4000);
        }
    };

    FakeImport<Allocate> allocate{"HeapAlloc", Allocate{}};
};
} // namespace

TEST_F(PE, WalksPastTheCapacityToTheDescriptorWithoutAName)
{
    const RoomAfterBlocks room;
    ImageBuilder builder;
    builder.PutImports(0x500, 0x1100, {"one.dll", "two.dll", "three.dll"});
    builder.importDirectorySize = 20;
    const ImportedModuleNameList names = ParsedImage(builder).GatherNames();
    EXPECT_EQ(names.capacity, 1u);
    ASSERT_EQ(names.count, 3u);
    EXPECT_EQ(NameOf(names, 0), "one.dll");
    EXPECT_EQ(NameOf(names, 1), "two.dll");
    EXPECT_EQ(NameOf(names, 2), "three.dll");
}

TEST_F(PE, CopiesANameOfMoreThan1023BytesWholeOverWhatFollowsIt)
{
    const RoomAfterBlocks room;
    const std::string tooLong(1500, 'n');
    ImageBuilder builder;
    builder.PutImports(0x500, 0x1100, {tooLong, "two.dll", tooLong});
    builder.importDirectorySize = 60;
    const ImportedModuleNameList names = ParsedImage(builder).GatherNames();
    EXPECT_EQ(names.capacity, 3u);
    ASSERT_EQ(names.count, 3u);
    EXPECT_EQ(names[0].length, 1500u);
    EXPECT_EQ(std::string(names[0].text, 1024), tooLong.substr(0, 1024));
    EXPECT_EQ(NameOf(names, 1), "two.dll");
    constexpr size_t left = 1500 - sizeof(ImportedModuleName) - 8; // of the first name, after the second one
    EXPECT_EQ(std::string(names[1].text + 8, left), tooLong.substr(0, left));
    EXPECT_EQ(names[2].length, 1500u);
    EXPECT_EQ(std::string(names[2].text, 1501), tooLong + '\0');
}

TEST_F(PE, ReturnsTheSizeOfTheFile)
{
    std::vector<uint8_t> bytes = ImageBuilder().Build();
    bytes.resize(0x12345);
    const TemporaryFile file(bytes);
    Result<ImageFile> image = OpenImage(file.GetPath());
    ASSERT_EQ(image.error, nullptr);
    EXPECT_EQ(GetImageFileSize(image.payload), 0x12345u);
    CloseImage(image.payload);
}

TEST_F(PE, ReturnsTheSizeOfAFileOfMoreThan4Gigabytes)
{
    const FakeImport query(
        "GetFileInformationByHandle",
        [](decltype(&GetFileInformationByHandle), HANDLE, LPBY_HANDLE_FILE_INFORMATION information) -> BOOL {
            information->nFileSizeHigh = 0x12;
            information->nFileSizeLow = 0x3456789A;
            return TRUE;
        });
    EXPECT_EQ(GetImageFileSize(ImageFile{}), 0x123456789Au);
}

TEST_F(PE, ReadsASystemLibrary)
{
    wchar_t path[1024];
    ASSERT_NE(GetModuleFileNameW(GetModuleHandleW(L"kernel32.dll"), path, 1024), 0u);
    Result<ImageFile> image = OpenImage(path);
    ASSERT_EQ(image.error, nullptr);
    const ImageSectionList sections = GatherImageSections(image.payload);
    EXPECT_GT(sections.count, 1u);
    const ImportedModuleNameList names =
        GatherImportedModuleNames(image.payload, sections.pointer, sections.count);
    bool importsNtdll = false;
    for (uint32_t i = 0; i < names.count; ++i)
    {
        importsNtdll = importsNtdll || _stricmp(names.pointer[i].text, "ntdll.dll") == 0;
    }
    EXPECT_TRUE(importsNtdll);
    CloseImage(image.payload);
}
#endif
} // namespace Torvane::Testing
