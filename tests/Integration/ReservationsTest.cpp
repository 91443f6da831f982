#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

#if TORVANE_HOST_HALF
#include "tests/Support/Modules.h"
#include "tests/Support/Utf8.h"
#else
#include "tests/Support/Integration/PatchBridge.h"
#endif

// Address space that LoadPatchWindows gives up for the load, and takes again if there was none.

namespace
{
/// Where the image FixedBase has to be.
constexpr uint32_t fixedBase = 0x5A000000;

/// Space that nobody takes by chance.
constexpr uint32_t firstSpace = 0x5C000000;
constexpr uint32_t secondSpace = 0x5D000000;
constexpr uint32_t spaceSize = 0x100000;
} // namespace

#if TORVANE_HOST_HALF

namespace
{
void* AsPointer(uint32_t address)
{
    return reinterpret_cast<void*>(static_cast<uintptr_t>(address));
}

/// With a protection that distinguishes our reservations from those of the Agent.
void Reserve(uint32_t address)
{
    ASSERT_EQ(AsPointer(address), VirtualAlloc(AsPointer(address), spaceSize, MEM_RESERVE, PAGE_READWRITE));
}

/// Not all of the OS's implementations distinguish free space from space that they can't reserve, so this tries.
bool IsFree(uint32_t address)
{
    void* space = VirtualAlloc(AsPointer(address), 0x10000, MEM_RESERVE, PAGE_NOACCESS);
    if (space != nullptr)
    {
        VirtualFree(space, 0, MEM_RELEASE);
    }
    return space == AsPointer(address);
}

void ExpectFree(uint32_t address)
{
    EXPECT_TRUE(IsFree(address)) << std::hex << address;
}

void ExpectReserved(uint32_t address, uint32_t size, DWORD protection)
{
    EXPECT_FALSE(IsFree(address)) << std::hex << address;
    const MEMORY_BASIC_INFORMATION region = QueryMemory(AsPointer(address));
    EXPECT_EQ(DWORD(MEM_RESERVE), region.State) << std::hex << address;
    EXPECT_EQ(AsPointer(address), region.AllocationBase);
    EXPECT_EQ(size, region.RegionSize) << std::hex << address;
    EXPECT_EQ(protection, region.AllocationProtect) << std::hex << address;
}

void ExpectTakenByUs(uint32_t address)
{
    ExpectReserved(address, spaceSize, PAGE_READWRITE);
}

void ExpectTakenAgain(uint32_t address, uint32_t size = spaceSize)
{
    ExpectReserved(address, size, PAGE_NOACCESS);
}

std::string CannotReserve(uint32_t size, uint32_t address)
{
    char text[128];
    snprintf(text, sizeof(text), "Cannot reserve %u bytes of address space at address 0x%08X", size, address);
    return text;
}

class ReservationsHost : public HostTest
{
protected:
    /// Publishes the path of an image and waits for the Bridge half to have it loaded, or not.
    void Load(const std::wstring& image)
    {
        PublishText("path", ImagePath(image));
        ConnectDefaultAgent();
        EXPECT_TRUE(Await("checked"));
    }

    /// How many reservations the Agent couldn't make, by its log.
    size_t CountFailedReservations() const
    {
        size_t count = 0;
        for (const LogRecord& record : ReadLog())
        {
            count += record.message.find("Cannot reserve") != std::string::npos;
        }
        return count;
    }
};
} // namespace

#define RESERVATIONS_TEST(Name) HOST_TEST_OF(ReservationsHost, Reservations, Name)

RESERVATIONS_TEST(AreInTheWayOfAnImageThatNeedsTheSpace)
{
    Reserve(fixedBase);
    Load(L"FixedBase");
    EXPECT_EQ(nullptr, GetModuleHandleW(L"FixedBase.dll"));
    ExpectTakenByUs(fixedBase);
}

RESERVATIONS_TEST(AreGivenUpForAnImageThatNeedsTheSpace)
{
    Reserve(fixedBase);
    Load(L"FixedBase");
    const HMODULE module = GetModuleHandleW(L"FixedBase.dll");
    EXPECT_EQ(AsPointer(fixedBase), module);
    EXPECT_EQ(DWORD(MEM_IMAGE), QueryMemory(module).Type);
    EXPECT_EQ(0x5A, FindExport<int (*)()>(module, "FixedNumber")());
    ExpectFree(fixedBase + spaceSize - 0x10000);
    EXPECT_EQ(0u, CountFailedReservations());
    ExpectNoErrorsInLog();
}

RESERVATIONS_TEST(StayGivenUpAfterASuccess)
{
    Reserve(firstSpace);
    Reserve(secondSpace);
    Load(L"PlainPatch");
    ExpectFree(firstSpace);
    ExpectFree(secondSpace);
    ExpectNoErrorsInLog();
}

RESERVATIONS_TEST(AreTakenAgainAfterAFailure)
{
    Reserve(firstSpace);
    Reserve(secondSpace);
    Load(L"no such image");
    ExpectTakenAgain(firstSpace);
    ExpectTakenAgain(secondSpace);
    EXPECT_EQ(0u, CountFailedReservations());
}

RESERVATIONS_TEST(AreTakenAgainAfterARefusalOfTheEntryPoint)
{
    SetEnvironmentVariableA("TORVANE_TEST_LOAD_FAILS", "1");
    Reserve(firstSpace);
    Load(L"SlowLoad");
    ExpectTakenAgain(firstSpace);
    EXPECT_EQ(0u, CountFailedReservations());
}

RESERVATIONS_TEST(AreTakenAgainAsOftenAsALoadFails)
{
    Reserve(fixedBase);
    PublishText("missing", ImagePath(L"no such image"));
    Load(L"FixedBase");
    EXPECT_EQ(AsPointer(fixedBase), GetModuleHandleW(L"FixedBase.dll"));
    EXPECT_EQ(3u, CountInLog("Failed to load patch from " + Utf8(ImagePath(L"no such image"))));
    EXPECT_EQ(0u, CountFailedReservations());
}

RESERVATIONS_TEST(AreTakenAgainInTheSizeThatTheCommandNames)
{
    Reserve(firstSpace);
    Load(L"no such image");
    ExpectTakenAgain(firstSpace, spaceSize / 2);
    ExpectFree(firstSpace + spaceSize / 2);
}

RESERVATIONS_TEST(OfNoSizeAreGivenUpPermanently)
{
    Reserve(firstSpace);
    Reserve(secondSpace);
    Load(L"no such image");
    ExpectFree(firstSpace);
    ExpectTakenAgain(secondSpace);
    EXPECT_EQ(0u, CountFailedReservations());
}

RESERVATIONS_TEST(OfNoAddressAreNothingToGiveUp)
{
    Reserve(firstSpace);
    Load(L"no such image");
    ExpectTakenAgain(firstSpace);
    EXPECT_EQ(0u, CountFailedReservations()) << "Without an address there is always room for them.";
}

RESERVATIONS_TEST(ThatCannotBeTakenAgainAreReportedOneByOne)
{
    Reserve(firstSpace);
    Reserve(secondSpace);
    Load(L"no such image");
    const std::string path = Utf8(ImagePath(L"no such image"));
    ExpectLogOrder({"Failed to load patch from " + path, CannotReserve(0x10000, firstSpace),
                    CannotReserve(0x20000, firstSpace)});
    EXPECT_EQ(2u, CountFailedReservations());
    for (const LogRecord& record : ReadLog())
    {
        EXPECT_TRUE(record.tag == "ERR" || record.message.find("Cannot reserve") == std::string::npos);
    }
    ExpectTakenAgain(firstSpace);
    ExpectTakenAgain(secondSpace);
}

RESERVATIONS_TEST(ThatAreNoneAreSkippedSilently)
{
    Load(L"PlainPatch");
    EXPECT_NE(nullptr, GetModuleHandleW(L"PlainPatch.dll"));
    ExpectFree(firstSpace);
    ExpectNoErrorsInLog();
}

RESERVATIONS_TEST(AreNamedByTheLowerHalfOfTheirAddress)
{
    Reserve(firstSpace);
    Reserve(secondSpace);
    Load(L"no such image");
    ExpectTakenAgain(firstSpace);
    ExpectTakenAgain(secondSpace);
    EXPECT_EQ(0u, CountFailedReservations());
}

#else

namespace
{
WirePageRange Space(AddressSlot base, uint64_t size = spaceSize)
{
    return {base, size, 0xEEEEEEEE, 0xEEEEEEEE};
}

class ReservationsBridge : public PatchBridge
{
protected:
    /// Has the image loaded that the host half names, or another one.
    bool LoadWith(const std::vector<WirePageRange>& reservations, const std::string& image = "path")
    {
        PatchCommand command;
        command.path = AwaitText(image);
        command.reservations = reservations;
        EXPECT_TRUE(SendLoadPatch(link, command));
        const Message answer = link.WaitForOneOf({BlobType::PatchLoaded, BlobType::LogNarrow}, testTimeout);
        EXPECT_TRUE(Fence());
        return answer && answer.Type() == BlobType::PatchLoaded;
    }
};
} // namespace

#define RESERVATIONS_BRIDGE(Name) BRIDGE_SCENARIO_OF(ReservationsBridge, Reservations, Name)

RESERVATIONS_BRIDGE(AreInTheWayOfAnImageThatNeedsTheSpace)
{
    EXPECT_FALSE(LoadWith({}));
}

RESERVATIONS_BRIDGE(AreGivenUpForAnImageThatNeedsTheSpace)
{
    EXPECT_TRUE(LoadWith({Space(fixedBase)}));
}

RESERVATIONS_BRIDGE(StayGivenUpAfterASuccess)
{
    EXPECT_TRUE(LoadWith({Space(firstSpace), Space(secondSpace)}));
}

RESERVATIONS_BRIDGE(AreTakenAgainAfterAFailure)
{
    EXPECT_FALSE(LoadWith({Space(firstSpace), Space(secondSpace)}));
}

RESERVATIONS_BRIDGE(AreTakenAgainAfterARefusalOfTheEntryPoint)
{
    EXPECT_FALSE(LoadWith({Space(firstSpace)}));
}

RESERVATIONS_BRIDGE(AreTakenAgainAsOftenAsALoadFails)
{
    EXPECT_FALSE(LoadWith({Space(fixedBase)}, "missing"));
    EXPECT_FALSE(LoadWith({}));
    EXPECT_FALSE(LoadWith({Space(fixedBase)}, "missing"));
    EXPECT_FALSE(LoadWith({Space(fixedBase)}, "missing"));
    EXPECT_TRUE(LoadWith({Space(fixedBase)}));
}

RESERVATIONS_BRIDGE(AreTakenAgainInTheSizeThatTheCommandNames)
{
    EXPECT_FALSE(LoadWith({Space(firstSpace, spaceSize / 2)}));
}

RESERVATIONS_BRIDGE(OfNoSizeAreGivenUpPermanently)
{
    EXPECT_FALSE(LoadWith({Space(firstSpace, 0), Space(secondSpace)}));
}

RESERVATIONS_BRIDGE(OfNoAddressAreNothingToGiveUp)
{
    EXPECT_FALSE(LoadWith({Space(0), Space(firstSpace), Space(0, 0)}));
}

RESERVATIONS_BRIDGE(ThatCannotBeTakenAgainAreReportedOneByOne)
{
    EXPECT_FALSE(LoadWith(
        {Space(firstSpace), Space(firstSpace, 0x10000), Space(firstSpace, 0x20000), Space(secondSpace)}));
}

RESERVATIONS_BRIDGE(ThatAreNoneAreSkippedSilently)
{
    EXPECT_TRUE(LoadWith({Space(firstSpace), Space(firstSpace + 0x1234), Space(0)}));
}

RESERVATIONS_BRIDGE(AreNamedByTheLowerHalfOfTheirAddress)
{
    EXPECT_FALSE(LoadWith({Space(firstSpace | 0x8765432100000000), Space(secondSpace | 0xFFFFFFFF00000000)}));
}

#endif
