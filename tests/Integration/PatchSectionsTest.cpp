#include "tests/Support/Integration/IntegrationTest.h"

#include <algorithm>

#include <windows.h>

#if TORVANE_HOST_HALF
#include "tests/Support/Modules.h"
#include "tests/Support/TemporaryFolder.h"
#include "tests/Support/Utf8.h"
#else
#include "tests/Support/Integration/PatchBridge.h"
#endif

// What LoadPatchWindows does to the sections of the loaded image.

#if TORVANE_HOST_HALF

namespace
{
constexpr char lineOfConversion[] = "Converting page into executable page: ";
constexpr char lineOfPreparation[] = "Preparing section preceding RVA ";

/// How many records begin with that text.
size_t CountBeginnings(const std::vector<LogRecord>& log, const std::string& beginning)
{
    size_t count = 0;
    for (const LogRecord& record : log)
    {
        count += record.message.compare(0, beginning.size(), beginning) == 0;
    }
    return count;
}

std::string Format(const char* format, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return text;
}

bool IsExecutable(DWORD protection)
{
    return (protection & 0xF0) != 0;
}

/// Sections of a loaded image.
std::vector<IMAGE_SECTION_HEADER> SectionsOf(void* module)
{
    const uint8_t* base = static_cast<const uint8_t*>(module);
    const IMAGE_NT_HEADERS* headers =
        reinterpret_cast<const IMAGE_NT_HEADERS*>(base + *reinterpret_cast<const uint32_t*>(base + 0x3C));
    const IMAGE_SECTION_HEADER* first = IMAGE_FIRST_SECTION(headers);
    return std::vector<IMAGE_SECTION_HEADER>(first, first + headers->FileHeader.NumberOfSections);
}

/// Loads a copy by ourselves, so that we can see how the loader leaves its pages.
void* LoadCopy(const TemporaryFolder& folder, const std::wstring& image)
{
    return LoadLibraryW(folder.Copy(ImagePath(image), image + L" copy.dll").c_str());
}
} // namespace

HOST_TEST(PatchSections, LogsItsStepsInOrder)
{
    PublishText("path", ImagePath(L"PlainPatch"));
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    const unsigned base = static_cast<unsigned>(AwaitNumber("base"));
    ExpectLogOrder({
        "Processing Blob::LoadPatchWindows",
        "Loading patch from " + Utf8(ImagePath(L"PlainPatch")),
        "Preparing section preceding RVA 0x1000 for patching",
        Format("%saddress 0x%08X, old protection 0x2, new protection 0x20", lineOfConversion, base),
        Format("Determining page regions in the address range 0x%08X with size 0x%016llX", base,
               AwaitNumber("size")),
    });
    EXPECT_EQ(0u, CountInLog("Enabling watchdog thread"));
    EXPECT_EQ(0u, CountInLog("Disabling watchdog thread"));
    ExpectNoErrorsInLog();
}

HOST_TEST(PatchSections, MakesThePageBeforeEachExecutableSectionExecutable)
{
    const TemporaryFolder folder(L"sections");
    uint8_t* untouched = static_cast<uint8_t*>(LoadCopy(folder, L"Sections"));
    ASSERT_NE(nullptr, untouched);
    PublishText("path", ImagePath(L"Sections"));
    StartDefaultAgent();
    uint8_t* base = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(AwaitNumber("base")));
    ASSERT_NE(nullptr, base);
    ASSERT_NE(untouched, base);

    std::vector<std::string> order;
    std::vector<const uint8_t*> converted;
    for (const IMAGE_SECTION_HEADER& section : SectionsOf(base))
    {
        if ((section.Characteristics & IMAGE_SCN_MEM_EXECUTE) == 0)
        {
            continue;
        }
        const uint32_t rva = section.VirtualAddress;
        order.push_back(Format("%s0x%X for patching", lineOfPreparation, rva));
        const DWORD before = QueryMemory(untouched + rva - 5).Protect;
        const DWORD after = QueryMemory(base + rva - 5).Protect;
        if (!IsExecutable(before))
        {
            const uint8_t* page = base + ((rva - 5) & ~0xFFFu);
            order.push_back(Format("%saddress 0x%08X, old protection 0x%lX, new protection 0x%lX",
                                   lineOfConversion, static_cast<unsigned>(reinterpret_cast<uintptr_t>(page)),
                                   before, before << 4));
            converted.push_back(page);
            EXPECT_EQ(before << 4, after) << order.back();
        }
    }
    ExpectLogOrder(order);
    EXPECT_EQ(5u, CountBeginnings(ReadLog(), lineOfPreparation));
    EXPECT_EQ(4u, converted.size());
    EXPECT_EQ(4u, CountBeginnings(ReadLog(), lineOfConversion));

    // Nothing else has changed.
    const uint32_t size = static_cast<uint32_t>(AwaitNumber("size"));
    for (uint32_t offset = 0; offset < size; offset += 4096)
    {
        if (std::find(converted.begin(), converted.end(), base + offset) == converted.end())
        {
            EXPECT_EQ(QueryMemory(untouched + offset).Protect, QueryMemory(base + offset).Protect) << offset;
        }
    }
    ExpectNoErrorsInLog();
    FreeLibrary(reinterpret_cast<HMODULE>(untouched));
}

HOST_TEST(PatchSections, PreparesNothingOfAnImageWithoutCode)
{
    PublishText("path", ImagePath(L"NoCode"));
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(0u, CountBeginnings(ReadLog(), lineOfPreparation));
    EXPECT_EQ(0u, CountBeginnings(ReadLog(), lineOfConversion));
    ExpectNoErrorsInLog();
}

HOST_TEST(PatchSections, LoadsWithoutPreparationWhenTheFileCannotBeRead)
{
    // The loader appends the extension that this path lacks; nobody else does.
    const std::wstring path = ImagePath(L"PlainPatch");
    PublishText("path", path.substr(0, path.size() - 4));
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_NE(nullptr, GetModuleHandleW(L"PlainPatch.dll"));
    EXPECT_EQ(0u, CountBeginnings(ReadLog(), lineOfPreparation));
    EXPECT_EQ(0u, CountBeginnings(ReadLog(), lineOfConversion));
    ExpectNoErrorsInLog();
}

HOST_TEST(PatchSections, LoadsTheSameImageTwice)
{
    PublishText("path", ImagePath(L"Sections"));
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(2u, CountInLog("Loading patch from " + Utf8(ImagePath(L"Sections"))));
    EXPECT_EQ(10u, CountBeginnings(ReadLog(), lineOfPreparation));
    EXPECT_EQ(4u, CountBeginnings(ReadLog(), lineOfConversion)) << "The second time all is executable.";
    const HMODULE module = GetModuleHandleW(L"Sections.dll");
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_TRUE(IsModule(module)) << "It has been loaded twice.";
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_FALSE(IsModule(module));
}

#else

#define PATCH_SECTIONS_BRIDGE(Name) BRIDGE_SCENARIO_OF(PatchBridge, PatchSections, Name)

PATCH_SECTIONS_BRIDGE(LogsItsStepsInOrder)
{
    const auto loaded = Load(AwaitText("path"));
    ASSERT_TRUE(loaded);
    Publish("base", loaded->base);
    Publish("size", loaded->imageSize);
}

PATCH_SECTIONS_BRIDGE(MakesThePageBeforeEachExecutableSectionExecutable)
{
    PatchCommand command;
    command.path = AwaitText("path");
    const auto loaded = LoadAsExpected(command);
    ASSERT_TRUE(loaded);
    Publish("base", loaded->base);
    Publish("size", loaded->imageSize);
}

PATCH_SECTIONS_BRIDGE(PreparesNothingOfAnImageWithoutCode)
{
    PatchCommand command;
    command.path = AwaitText("path");
    const auto loaded = LoadAsExpected(command);
    ASSERT_TRUE(loaded);
}

PATCH_SECTIONS_BRIDGE(LoadsWithoutPreparationWhenTheFileCannotBeRead)
{
    PatchCommand command;
    command.path = AwaitText("path");
    const auto loaded = LoadAsExpected(command);
    ASSERT_TRUE(loaded);
}

PATCH_SECTIONS_BRIDGE(LoadsTheSameImageTwice)
{
    const auto first = Load(AwaitText("path"));
    const auto second = Load(AwaitText("path"));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first.Bytes(), second.Bytes());
}

#endif
