#include "Shared/Filesystem/Windows/NamedSharedMemory.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/LogLine.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TemporaryFolder.h"

#include <algorithm>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr char createFailure[] = "Cannot create named shared memory %ls with size %zu.";
constexpr char viewFailure[] = "Cannot map view for named shared memory %ls with size %zu.";

bool IsMapped(const void* address)
{
    MEMORY_BASIC_INFORMATION information = {};
    VirtualQuery(address, &information, sizeof(information));
    return information.State != MEM_FREE;
}

/// Writes into the section whose name it is given.
const ChildRole writer(L"shared memory writer", [](const wchar_t* name) {
    const HANDLE section = OpenFileMappingW(FILE_MAP_WRITE, FALSE, name);
    uint8_t* view = static_cast<uint8_t*>(MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, 0));
    view[0] = 0xAB;
    view[8191] = 0xCD;
});

class NamedSharedMemories : public testing::Test
{
protected:
    std::wstring name = L"TVN_UnitTest_" + std::to_wstring(GetCurrentProcessId());
    RecordedLog log;
};
} // namespace

TEST_F(NamedSharedMemories, ANewSectionIsClearedAndCanBeWritten)
{
    const Result<NamedSharedMemory> result = CreateNamedSharedMemory(name.c_str(), 5000);
    ASSERT_EQ(result.error, nullptr);
    NamedSharedMemory memory = result.payload;
    EXPECT_EQ(memory.size, 5000u);
    EXPECT_EQ(std::count(memory.view, memory.view + 5000, 0), 5000);
    std::fill(memory.view, memory.view + 5000, uint8_t{0x77});
    EXPECT_EQ(std::count(memory.view, memory.view + 5000, 0x77), 5000);
    CloseNamedSharedMemory(memory);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(NamedSharedMemories, TheSecondPartyFindsTheSectionOfTheFirst)
{
    NamedSharedMemory first = CreateNamedSharedMemory(name.c_str(), 4096).payload;
    first.view[17] = 0x55;
    const Result<NamedSharedMemory> result = CreateNamedSharedMemory(name.c_str(), 4096);
    ASSERT_EQ(result.error, nullptr);
    NamedSharedMemory second = result.payload;
    EXPECT_NE(second.view, first.view);
    EXPECT_NE(second.mapping, first.mapping);
    EXPECT_EQ(second.view[17], 0x55);
    second.view[4095] = 0x66;
    EXPECT_EQ(first.view[4095], 0x66);
    CloseNamedSharedMemory(first);
    EXPECT_EQ(second.view[17], 0x55);
    CloseNamedSharedMemory(second);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(NamedSharedMemories, AnotherProcessFindsTheSectionByItsName)
{
    NamedSharedMemory memory = CreateNamedSharedMemory(name.c_str(), 8192).payload;
    writer.Run(name.c_str());
    EXPECT_EQ(memory.view[0], 0xAB);
    EXPECT_EQ(memory.view[8191], 0xCD);
    CloseNamedSharedMemory(memory);
}

TEST_F(NamedSharedMemories, SectionsOfOtherNamesHaveNothingInCommon)
{
    NamedSharedMemory first = CreateNamedSharedMemory(name.c_str(), 4096).payload;
    NamedSharedMemory second = CreateNamedSharedMemory((name + L"_other").c_str(), 4096).payload;
    first.view[0] = 1;
    EXPECT_EQ(second.view[0], 0);
    CloseNamedSharedMemory(first);
    CloseNamedSharedMemory(second);
}

TEST_F(NamedSharedMemories, ClosingGivesAllBackAndTheNameIsFreeAgain)
{
    NamedSharedMemory memory = CreateNamedSharedMemory(name.c_str(), 4096).payload;
    const NamedSharedMemory opened = memory;
    memory.view[0] = 1;
    CloseNamedSharedMemory(memory);
    EXPECT_FALSE(IsMapped(opened.view));
    EXPECT_FALSE(IsOpenHandle(opened.mapping));
    EXPECT_EQ(memory.view, nullptr);
    EXPECT_EQ(memory.mapping, nullptr);
    NamedSharedMemory again = CreateNamedSharedMemory(name.c_str(), 4096).payload;
    EXPECT_EQ(again.view[0], 0);
    CloseNamedSharedMemory(again);
}

TEST_F(NamedSharedMemories, IsMadeInThePageFileAndMappedForEverything)
{
    const HANDLE section = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    uint8_t view[16];
    FakeImport create("CreateFileMappingW",
                      [&](decltype(&CreateFileMappingW), HANDLE file, LPSECURITY_ATTRIBUTES security,
                          DWORD protection, DWORD sizeHigh, DWORD sizeLow, LPCWSTR sectionName) -> HANDLE {
                          EXPECT_EQ(file, INVALID_HANDLE_VALUE);
                          EXPECT_EQ(security, nullptr);
                          EXPECT_EQ(protection, 4u);
                          EXPECT_EQ(sizeHigh, 0u);
                          EXPECT_EQ(sizeLow, 0xFEDCBA98u);
                          EXPECT_EQ(std::wstring(sectionName), name);
                          return section;
                      });
    FakeImport map("MapViewOfFile",
                   [&](decltype(&MapViewOfFile), HANDLE mapping, DWORD access, DWORD offsetHigh,
                       DWORD offsetLow, SIZE_T size) -> LPVOID {
                       EXPECT_EQ(mapping, section);
                       EXPECT_EQ(access, 0xF001Fu);
                       EXPECT_EQ(offsetHigh, 0u);
                       EXPECT_EQ(offsetLow, 0u);
                       EXPECT_EQ(size, 0xFEDCBA98u);
                       return view;
                   });
    const Result<NamedSharedMemory> result = CreateNamedSharedMemory(name.c_str(), 0xFEDCBA98);
    ASSERT_EQ(result.error, nullptr);
    EXPECT_EQ(result.payload.mapping, section);
    EXPECT_EQ(result.payload.view, view);
    EXPECT_EQ(result.payload.size, 0xFEDCBA98u);
    CloseHandle(section);
}

TEST_F(NamedSharedMemories, ANameThatAnotherKindOfObjectHasFailsAtTheSection)
{
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, name.c_str());
    ASSERT_NE(event, nullptr);
    const Result<NamedSharedMemory> result = CreateNamedSharedMemory(name.c_str(), 4096);
    CloseHandle(event);
    ASSERT_NE(result.error, nullptr);
    EXPECT_STREQ(result.error, createFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(log.GetLines(),
              Lines({LogLine("DBG Cannot create named shared memory %ls with size 4096.", name.c_str()),
                     OSErrorLine(ERROR_INVALID_HANDLE)}));
}

TEST_F(NamedSharedMemories, ASectionWithoutBytesFails)
{
    const Result<NamedSharedMemory> result = CreateNamedSharedMemory(name.c_str(), 0);
    ASSERT_NE(result.error, nullptr);
    EXPECT_STREQ(result.error, createFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(log.GetLines(),
              Lines({LogLine("DBG Cannot create named shared memory %ls with size 0.", name.c_str()),
                     OSErrorLine(ERROR_INVALID_PARAMETER)}));
}

TEST_F(NamedSharedMemories, AnEarlierSectionThatIsSmallerFailsAtTheView)
{
    NamedSharedMemory first = CreateNamedSharedMemory(name.c_str(), 4096).payload;
    const Result<NamedSharedMemory> result = CreateNamedSharedMemory(name.c_str(), 3 * 65536);
    ASSERT_NE(result.error, nullptr);
    EXPECT_STREQ(result.error, viewFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(
        log.GetLines(),
        Lines({LogLine("DBG Cannot map view for named shared memory %ls with size 196608.", name.c_str()),
               OSErrorLine(ERROR_ACCESS_DENIED)}));
    CloseNamedSharedMemory(first);
}

TEST_F(NamedSharedMemories, AFailureAtTheViewClosesTheSection)
{
    HANDLE section = nullptr;
    FakeImport map("MapViewOfFile",
                   [&](decltype(&MapViewOfFile), HANDLE mapping, DWORD, DWORD, DWORD, SIZE_T) -> LPVOID {
                       section = mapping;
                       EXPECT_TRUE(IsOpenHandle(section));
                       SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                       return nullptr;
                   });
    const Result<NamedSharedMemory> result = CreateNamedSharedMemory(name.c_str(), 65536);
    EXPECT_STREQ(result.error, viewFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(
        log.GetLines(),
        Lines({LogLine("DBG Cannot map view for named shared memory %ls with size 65536.", name.c_str()),
               OSErrorLine(ERROR_NOT_ENOUGH_MEMORY)}));
    EXPECT_FALSE(IsOpenHandle(section));
}
} // namespace Torvane::Testing
