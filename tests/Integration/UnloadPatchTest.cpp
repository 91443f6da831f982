#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

#if TORVANE_HOST_HALF
#include "tests/Support/Modules.h"
#else
#include "tests/Support/Integration/PatchBridge.h"
#endif

// UnloadPatch.

#if TORVANE_HOST_HALF

HOST_TEST(UnloadPatch, FreesThePatch)
{
    PublishText("path", ImagePath(L"PlainPatch"));
    StartDefaultAgent();
    void* module = reinterpret_cast<void*>(static_cast<uintptr_t>(AwaitNumber("base")));
    EXPECT_TRUE(IsModule(module));
    Signal("unload");
    EXPECT_TRUE(Await("unloaded"));
    EXPECT_FALSE(IsModule(module));
    EXPECT_EQ(1u, CountInLog("Processing Blob::UnloadPatch"));
    ExpectNoErrorsInLog();
}

HOST_TEST(UnloadPatch, FreesOneLoadOfSeveral)
{
    PublishText("path", ImagePath(L"PlainPatch"));
    StartDefaultAgent();
    void* module = reinterpret_cast<void*>(static_cast<uintptr_t>(AwaitNumber("base")));
    EXPECT_TRUE(Await("unloaded once"));
    EXPECT_TRUE(IsModule(module));
    Signal("unload");
    EXPECT_TRUE(Await("unloaded"));
    EXPECT_FALSE(IsModule(module));
}

HOST_TEST(UnloadPatch, IgnoresWhatIsNoModule)
{
    Publish("heap", HeapAlloc(GetProcessHeap(), 0, 16));
    Publish("page", VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    PublishText("path", ImagePath(L"PlainPatch"));
    StartDefaultAgent();
    EXPECT_TRUE(Await("unloaded"));
    EXPECT_EQ(6u, CountInLog("Processing Blob::UnloadPatch"));
    ExpectNoErrorsInLog();
    // From the first of them to the echo after the last one there is no other line.
    const std::vector<LogRecord> log = ReadLog();
    size_t first = 0;
    while (first < log.size() && log[first].message != "Processing Blob::UnloadPatch")
    {
        ++first;
    }
    for (size_t i = first; i < first + 6; ++i)
    {
        ASSERT_LT(i, log.size());
        EXPECT_EQ("Processing Blob::UnloadPatch", log[i].message);
    }
}

#else

#define UNLOAD_PATCH_BRIDGE(Name) BRIDGE_SCENARIO_OF(PatchBridge, UnloadPatch, Name)

UNLOAD_PATCH_BRIDGE(FreesThePatch)
{
    const auto loaded = Load(AwaitText("path"));
    ASSERT_TRUE(loaded);
    Publish("base", loaded->base);
    ASSERT_TRUE(Await("unload"));
    ASSERT_TRUE(SendUnloadPatch(link, loaded->base | 0x1234567800000000));
    ExpectNoReply();
    Signal("unloaded");
}

UNLOAD_PATCH_BRIDGE(FreesOneLoadOfSeveral)
{
    ASSERT_TRUE(Load(AwaitText("path")));
    const auto loaded = Load(AwaitText("path"));
    ASSERT_TRUE(loaded);
    Publish("base", loaded->base);
    ASSERT_TRUE(SendUnloadPatch(link, loaded->base));
    ASSERT_TRUE(Fence());
    Signal("unloaded once");
    ASSERT_TRUE(Await("unload"));
    ASSERT_TRUE(SendUnloadPatch(link, loaded->base));
    ASSERT_TRUE(Fence());
    Signal("unloaded");
}

UNLOAD_PATCH_BRIDGE(IgnoresWhatIsNoModule)
{
    const auto loaded = Load(AwaitText("path"));
    ASSERT_TRUE(loaded);
    for (const AddressSlot base : {loaded->base, loaded->base, AwaitNumber("heap"), AwaitNumber("page"),
                                   AddressSlot(0), AddressSlot(0x7FFF0000)})
    {
        ASSERT_TRUE(SendUnloadPatch(link, base));
    }
    ExpectNoReply();
    Signal("unloaded");
}

#endif
