#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

#if TORVANE_HOST_HALF
#include "tests/Support/Modules.h"
#include "tests/Support/TemporaryFolder.h"
#include "tests/Support/TestThread.h"
#include "tests/Support/Utf8.h"
#else
#include "tests/Support/Integration/PatchBridge.h"
#endif

// LoadPatchWindows of images that can be loaded.

#if TORVANE_HOST_HALF

/// Publishes the path of an image and lets the Bridge half check the rest.
#define LOAD_PATCH_TEST_OF(Name, image)                      \
    HOST_TEST(LoadPatch, Name)                               \
    {                                                        \
        PublishText("path", ImagePath(image));               \
        StartDefaultAgent();                                 \
        EXPECT_EQ(ConnectionSucceeded, WaitForConnection()); \
        EXPECT_TRUE(Await("checked"));                       \
        ExpectNoErrorsInLog();                               \
    }

LOAD_PATCH_TEST_OF(AnswersWithWhatItHasLoaded, L"PlainPatch")
LOAD_PATCH_TEST_OF(EchoesTheFieldsOfTheCommand, L"PlainPatch")
LOAD_PATCH_TEST_OF(ReadsNothingOfTheBytesInBetween, L"PlainPatch")

HOST_TEST(LoadPatch, LeavesAnImageThatWorks)
{
    PublishText("path", ImagePath(L"PlainPatch"));
    StartDefaultAgent();
    void* module = reinterpret_cast<void*>(static_cast<uintptr_t>(AwaitNumber("base")));
    ASSERT_NE(nullptr, module);
    EXPECT_EQ(GetModuleHandleW(L"PlainPatch.dll"), module);
    using Function = int (*)(int);
    const Function* functions = FindExport<const Function*>(module, "plainFunctions");
    EXPECT_EQ(42, functions[0](41));
    EXPECT_EQ(nullptr, functions[1]);
    EXPECT_EQ(43, functions[2](41));
    EXPECT_STREQ("plain", *FindExport<const char**>(module, "plainText"));
    EXPECT_EQ(0x12345678u, *FindExport<uint32_t*>(module, "plainNumber"));
    EXPECT_EQ(7, FindExport<Function>(module, "PlainAbsolute")(-7));
}

HOST_TEST(LoadPatch, LoadsCodeInManySectionsAndThreadLocalData)
{
    PublishText("path", ImagePath(L"Sections"));
    StartDefaultAgent();
    void* module = reinterpret_cast<void*>(static_cast<uintptr_t>(AwaitNumber("base")));
    ASSERT_NE(nullptr, module);
    using Function = int (*)();
    EXPECT_EQ(1, FindExport<Function>(module, "FirstCode")());
    EXPECT_EQ(2, FindExport<Function>(module, "SecondCode")());
    EXPECT_EQ(3, FindExport<Function>(module, "ThirdCode")());
    EXPECT_EQ(4, FindExport<Function>(module, "FourthCode")());
    static Function threadNumber = FindExport<Function>(module, "ThreadNumber");
    EXPECT_EQ(0x7E57, threadNumber());
    EXPECT_EQ(0x7E58, threadNumber());
    int ofOtherThread = 0;
    {
        const TestThread thread([&] { ofOtherThread = threadNumber(); });
    }
    EXPECT_EQ(0x7E57, ofOtherThread);
}

HOST_TEST(LoadPatch, LoadsALargeImage)
{
    PublishText("path", ImagePath(L"Huge"));
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    const HMODULE module = GetModuleHandleW(L"Huge.dll");
    EXPECT_EQ(1, FindExport<uint8_t*>(module, "hugeData")[0]);
    EXPECT_EQ(0, FindExport<uint8_t*>(module, "hugeMemory")[48 * 1024 * 1024 - 1]);
    ExpectNoErrorsInLog();
}

HOST_TEST(LoadPatch, LoadsFromAPathWithSpacesAndForeignLetters)
{
    const TemporaryFolder folder(L"patches of \u00C4rger \u20AC \u6F22\u5B57");
    const std::wstring path = folder.Copy(ImagePath(L"PlainPatch"), L"patch \u00E9\u0416 1.2.dll");
    ASSERT_FALSE(path.empty());
    PublishText("path", path);
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(1u, CountInLog("Loading patch from " + Utf8(path)));
    const HMODULE module = GetModuleHandleW(path.c_str());
    EXPECT_NE(nullptr, module);
    ExpectNoErrorsInLog();
    Shutdown();
    FreeLibrary(module);
}

HOST_TEST(LoadPatch, LoadsTwoPatchesOfTheSameContent)
{
    const TemporaryFolder folder(L"two");
    PublishText("path", folder.Copy(ImagePath(L"PlainPatch"), L"one.dll"));
    PublishText("second path", folder.Copy(ImagePath(L"PlainPatch"), L"two.dll"));
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    const HMODULE modules[] = {GetModuleHandleW(L"one.dll"), GetModuleHandleW(L"two.dll")};
    EXPECT_NE(modules[0], modules[1]);
    for (const HMODULE module : modules)
    {
        ASSERT_NE(nullptr, module);
        using Function = int (*)(int);
        EXPECT_EQ(42, FindExport<const Function*>(module, "plainFunctions")[0](41));
    }
    Shutdown();
    FreeLibrary(modules[0]);
    FreeLibrary(modules[1]);
}

#else

#define LOAD_PATCH_BRIDGE(Name) BRIDGE_SCENARIO_OF(PatchBridge, LoadPatch, Name)

LOAD_PATCH_BRIDGE(AnswersWithWhatItHasLoaded)
{
    PatchCommand command;
    command.path = AwaitText("path");
    command.cookieText = L"second";
    const auto loaded = Load(command);
    ASSERT_TRUE(loaded);
    EXPECT_EQ((std::vector<uint8_t>{'M', 'Z'}), host.Read(loaded->base, 2));
    EXPECT_EQ(ExpectedAnswer(command, loaded->base), loaded.Bytes());
}

LOAD_PATCH_BRIDGE(EchoesTheFieldsOfTheCommand)
{
    PatchCommand command;
    command.path = AwaitText("path");
    command.cookieText = L"\u00E4\u20AC \U0001F600";
    command.cookie38 = 0xFEDCBA9876543210;
    command.cookie50 = 0x1122334455667788;
    command.cookie58 = 0xFFFFFFFFFFFFFFFF;
    command.cookie60 = 0x8000000000000001;
    command.cookie68 = 0xA5;
    auto loaded = Load(command);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(0x76543210u, loaded->echo38) << "Kept in 32 bits.";
    EXPECT_EQ(ExpectedAnswer(command, loaded->base), loaded.Bytes());

    command.cookie38 = 0xFFFFFFFFFFFFFFFF;
    command.cookie68 = 2;
    command.cookieText.clear();
    loaded = Load(command);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(0xFFFFFFFFu, loaded->echo38);
    EXPECT_EQ(ExpectedAnswer(command, loaded->base), loaded.Bytes());
}

LOAD_PATCH_BRIDGE(ReadsNothingOfTheBytesInBetween)
{
    PatchCommand command;
    command.path = AwaitText("path");
    command.cookieText = L"second";
    BlobWriter<LoadPatchWindowsBlob> blob;
    memset(&blob.fixed, 0xEE, sizeof(blob.fixed));
    blob.String(&LoadPatchWindowsBlob::patchPath, command.path);
    blob.String(&LoadPatchWindowsBlob::secondText, command.cookieText);
    blob.List(&LoadPatchWindowsBlob::reservations, std::vector<WirePageRange>());
    blob.fixed.echo38 = 0;
    blob.fixed.echo50 = 0;
    blob.fixed.echo58 = 0;
    blob.fixed.echo60 = 0;
    blob.fixed.echo68 = 0;
    blob.fixed.watchdog = 0;
    ASSERT_TRUE(link.Send(blob.Finish()));
    const auto loaded = ExpectLoaded();
    ASSERT_TRUE(loaded);
    EXPECT_EQ(ExpectedAnswer(command, loaded->base), loaded.Bytes());
}

LOAD_PATCH_BRIDGE(LeavesAnImageThatWorks)
{
    const auto loaded = Load(AwaitText("path"));
    ASSERT_TRUE(loaded);
    Publish("base", loaded->base);
}

LOAD_PATCH_BRIDGE(LoadsCodeInManySectionsAndThreadLocalData)
{
    const auto loaded = Load(AwaitText("path"));
    ASSERT_TRUE(loaded);
    Publish("base", loaded->base);
}

LOAD_PATCH_BRIDGE(LoadsALargeImage)
{
    PatchCommand command;
    command.path = AwaitText("path");
    const auto loaded = LoadAsExpected(command);
    ASSERT_TRUE(loaded);
    EXPECT_LT(49u * 1024 * 1024, loaded->imageSize);
}

LOAD_PATCH_BRIDGE(LoadsFromAPathWithSpacesAndForeignLetters)
{
    PatchCommand command;
    command.path = AwaitText("path");
    const auto loaded = LoadAsExpected(command);
    ASSERT_TRUE(loaded);
}

LOAD_PATCH_BRIDGE(LoadsTwoPatchesOfTheSameContent)
{
    PatchCommand command;
    command.path = AwaitText("path");
    const auto first = LoadAsExpected(command);
    ASSERT_TRUE(first);
    command.path = AwaitText("second path");
    const auto second = LoadAsExpected(command);
    ASSERT_TRUE(second);
    EXPECT_NE(first->base, second->base);
}

#endif
