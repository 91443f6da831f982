#include "tests/Support/ByteImage.h"
#include "tests/Support/Files.h"
#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// What hosts announce by the eight enabling and disabling functions, and what becomes of it on the pipe.

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/ModuleHost.h"

#include <functional>

namespace
{
using Lines = std::vector<std::string>;

/// What a filter was asked, and how it answers.
struct FilterRecord
{
    std::vector<std::string> paths;
    std::vector<DWORD> threads;
    std::string refused; ///< modules with this in their path

    bool Ask(const std::string& path)
    {
        paths.push_back(path);
        threads.push_back(GetCurrentThreadId());
        return refused.empty() || path.find(refused) == std::string::npos;
    }

    static bool TVN_CALL Wide(void* context, const wchar_t* path)
    {
        return static_cast<FilterRecord*>(context)->Ask(Narrow(path));
    }

    static bool TVN_CALL ANSI(void* context, const char* path)
    {
        return static_cast<FilterRecord*>(context)->Ask(path);
    }
};
} // namespace

#define MODULE_HOST(Name) HOST_TEST_OF(ModuleHost, ModuleEnabling, Name)

MODULE_HOST(SendsWhatTheBrokerHasToKnowAndWaitsForIt)
{
    const std::wstring path = ImagePath(L"PlainPatch");
    const HMODULE module = LoadLibraryW(path.c_str());
    ASSERT_NE(nullptr, module);
    PublishText("path", FinalPath(path));
    Publish("base", module);
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    ExpectToWaitForLast([&] { agent.TvnEnableModule(path.c_str(), ExactlyTheseModules, nullptr, nullptr); });
    wchar_t osPath[MAX_PATH] = {};
    GetModuleFileNameW(module, osPath, MAX_PATH);
    ExpectLogOrder({"API TvnEnableModule", "Enabling module with options 0", "API TvnGenericEnableModules",
                    "Enabling module " + Narrow(osPath), "Processing Blob::DecrementLatch"});
    ExpectNoErrorsInLog();
}

MODULE_HOST(SendsTheLargestModulesFirstAndWaitsForEachOfThem)
{
    LoadThree();
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    ExpectToWaitForLast([&] { agent.TvnEnableModules(three, 3, ExactlyTheseModules, nullptr, nullptr); });
    ExpectNoErrorsInLog();
}

MODULE_HOST(WaitsAlsoForModulesThatTheFilterRefuses)
{
    LoadThree();
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    FilterRecord filter;
    filter.refused = "TvnLarge";
    DWORD caller = 0;
    ExpectToWaitForLast([&] {
        caller = GetCurrentThreadId();
        agent.TvnEnableModules(three, 3, ExactlyTheseModules, &filter, &FilterRecord::Wide);
    });
    EXPECT_EQ((Lines{Narrow(libraries.PathOf("TvnSmall.dll")), Narrow(libraries.PathOf("TvnLarge.dll")),
                     Narrow(libraries.PathOf("TvnMiddle.dll"))}),
              filter.paths);
    EXPECT_EQ(std::vector<DWORD>(3, caller), filter.threads);
    EXPECT_EQ(0u, CountInLog("Enabling module " + filter.paths[1]));
}

MODULE_HOST(SkipsFilesThatCannotBeReadAndWaitsForThem)
{
    LoadThree();
    ASSERT_TRUE(libraries.Rename("TvnLarge.dll"));
    const HANDLE lock = libraries.Lock("TvnSmall.dll");
    ASSERT_NE(INVALID_HANDLE_VALUE, lock);
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    ExpectToWaitForLast([&] { agent.TvnEnableModules(three, 3, ExactlyTheseModules, nullptr, nullptr); });
    CloseHandle(lock);
    for (const char* name : {"TvnLarge.dll", "TvnSmall.dll"})
    {
        const std::string path = Narrow(libraries.PathOf(name));
        ExpectLogOrder({"Enabling module " + path, "Failed to open executable " + path});
    }
    ExpectLogOrder({"Enabling module " + Narrow(libraries.PathOf("TvnMiddle.dll"))});
}

MODULE_HOST(SendsAnEmptyListIfNoFileCanBeRead)
{
    LoadThree();
    for (const char* name : {"TvnLarge.dll", "TvnSmall.dll", "TvnMiddle.dll"})
    {
        ASSERT_TRUE(libraries.Rename(name));
    }
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    ExpectToWaitForLast([&] { agent.TvnEnableModules(three, 3, ExactlyTheseModules, nullptr, nullptr); });
}

MODULE_HOST(SendsNothingIfNothingIsLeft)
{
    LoadThree();
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    FilterRecord filter;
    filter.refused = "Tvn";
    agent.TvnEnableModules(three, 3, ExactlyTheseModules, &filter, &FilterRecord::Wide);
    agent.TvnDisableModules(three, 3, ExactlyTheseModules, &filter, &FilterRecord::Wide);
    EXPECT_EQ(6u, filter.paths.size());
    agent.TvnEnableModules(three, 0, ExactlyTheseModules, nullptr, nullptr);
    agent.TvnDisableModules(nullptr, 0, IncludeImports, nullptr, nullptr);
    agent.TvnEnableModule(L"TvnNotLoaded.dll", ExactlyTheseModules, nullptr, nullptr);
    agent.TvnEnableModule(L"TvnNotLoaded.dll", IncludeImports, nullptr, nullptr);
    EXPECT_EQ(2u, CountInLog("Failed to load module TvnNotLoaded.dll"));
    agent.TvnDisableModule(L"TvnNotLoaded.dll", ExactlyTheseModules, nullptr, nullptr);
    EXPECT_EQ(1u, CountInLog("Failed to unload module TvnNotLoaded.dll"));
    agent.TvnLogMessageANSI("after all of this");
}

MODULE_HOST(TakesAllFormsOfTheCall)
{
    LoadThree();
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    const char* narrow[3] = {"TvnSmall.dll", "TvnLarge.dll", "TvnMiddle.dll"};
    const auto exactly = ExactlyTheseModules;
    const std::function<void(FilterRecord&)> calls[8] = {
        [&](FilterRecord& filter) { agent.TvnEnableModule(three[0], exactly, &filter, &FilterRecord::Wide); },
        [&](FilterRecord& filter) {
            agent.TvnEnableModuleANSI(narrow[1], exactly, &filter, &FilterRecord::ANSI);
        },
        [&](FilterRecord& filter) {
            agent.TvnEnableModules(three, 2, exactly, &filter, &FilterRecord::Wide);
        },
        [&](FilterRecord& filter) {
            agent.TvnEnableModulesANSI(narrow, 3, exactly, &filter, &FilterRecord::ANSI);
        },
        [&](FilterRecord& filter) {
            agent.TvnDisableModule(three[0], exactly, &filter, &FilterRecord::Wide);
        },
        [&](FilterRecord& filter) {
            agent.TvnDisableModuleANSI(narrow[1], exactly, &filter, &FilterRecord::ANSI);
        },
        [&](FilterRecord& filter) {
            agent.TvnDisableModules(three, 2, exactly, &filter, &FilterRecord::Wide);
        },
        [&](FilterRecord& filter) {
            agent.TvnDisableModulesANSI(narrow, 3, exactly, &filter, &FilterRecord::ANSI);
        },
    };
    const std::string small = Narrow(libraries.PathOf("TvnSmall.dll"));
    const std::string large = Narrow(libraries.PathOf("TvnLarge.dll"));
    const std::string middle = Narrow(libraries.PathOf("TvnMiddle.dll"));
    const Lines asked[4] = {{small}, {large}, {small, large}, {small, large, middle}};
    for (size_t i = 0; i < 8; ++i)
    {
        FilterRecord filter;
        calls[i](filter);
        EXPECT_EQ(asked[i % 4], filter.paths) << i;
    }
    ExpectLogOrder({"API TvnEnableModule",
                    "Enabling module with options 0",
                    "API TvnGenericEnableModules",
                    "API TvnEnableModuleANSI",
                    "Enabling module with options 0",
                    "API TvnGenericEnableModules",
                    "API TvnEnableModules",
                    "Enabling 2 module(s) with options 0",
                    "API TvnGenericEnableModules",
                    "API TvnEnableModulesANSI",
                    "Enabling 3 module(s) with options 0",
                    "API TvnGenericEnableModules",
                    "API TvnDisableModule",
                    "Disabling module with options 0",
                    "API TvnGenericDisableModules",
                    "Disabling module " + small,
                    "API TvnDisableModuleANSI",
                    "Disabling module with options 0",
                    "API TvnGenericDisableModules",
                    "API TvnDisableModules",
                    "Disabling 2 module(s) with options 0",
                    "API TvnGenericDisableModules",
                    "API TvnDisableModulesANSI",
                    "Disabling 3 module(s) with options 0",
                    "API TvnGenericDisableModules",
                    "Disabling module " + small,
                    "Disabling module " + large,
                    "Disabling module " + middle});
    ExpectNoErrorsInLog();
}

MODULE_HOST(DisablesWhatIsLoadedInTheOrderOfTheCall)
{
    LoadThree();
    for (const char* name : {"TvnSmall.dll", "TvnMiddle.dll"})
    {
        PublishText(name, FinalPath(libraries.PathOf(name)));
        Publish(std::string(name) + " base", GetModuleHandleA(name));
    }
    ASSERT_TRUE(libraries.Rename("TvnLarge.dll"));
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnDisableModules(three, 3, ExactlyTheseModules, nullptr, nullptr);
    const std::string missing = Narrow(libraries.PathOf("TvnLarge.dll"));
    ExpectLogOrder({"Disabling module " + missing, "Failed to open executable " + missing});
    EXPECT_NE(nullptr, GetModuleHandleW(L"TvnSmall.dll"));
}

MODULE_HOST(IncludesImportsOnRequest)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}, {"TvnC.dll"}}, 0x9000));
    ASSERT_TRUE(libraries.Write("TvnB.dll", {{"TvnD.dll"}}, 0x8000));
    ASSERT_TRUE(libraries.Write("TvnC.dll", {{"TvnD.dll"}, {"TvnA.dll"}}, 0x7000));
    ASSERT_TRUE(libraries.Write("TvnD.dll", {}, 0x6000));
    ASSERT_NE(nullptr, libraries.Load("TvnA.dll"));
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableModule(L"TvnA.dll", IncludeImports, nullptr, nullptr);
    agent.TvnEnableModule(L"TvnA.dll", 0xFFFFFFFE, nullptr, nullptr);
    agent.TvnEnableModule(L"TvnA.dll", 0xFFFFFFFF, nullptr, nullptr);
    const wchar_t* both[2] = {L"TvnD.dll", L"TvnB.dll"};
    agent.TvnEnableModules(both, 2, IncludeImports, nullptr, nullptr);
    agent.TvnDisableModules(both, 2, IncludeImports, nullptr, nullptr);
    ExpectLogOrder({"Enabling module with options 1", "Enabling module with options 4294967294",
                    "Enabling module with options 4294967295", "Enabling 2 module(s) with options 1",
                    "Disabling 2 module(s) with options 1"});
    ExpectNoErrorsInLog();
}

MODULE_HOST(NormalizesAPathThatDiffersInCase)
{
    LoadThree();
    PublishText("path", FinalPath(libraries.PathOf("TvnSmall.dll")));
    std::wstring path = libraries.PathOf("TvnSmall.dll");
    CharUpperBuffW(path.data(), static_cast<DWORD>(path.size()));
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableModule(path.c_str(), ExactlyTheseModules, nullptr, nullptr);
    agent.TvnEnableModule(L"tvnsmall", ExactlyTheseModules, nullptr, nullptr);
    ExpectNoErrorsInLog();
}

MODULE_HOST(PreparesSectionsBeforeItLooksAtPages)
{
    const HMODULE module = LoadLibraryW(ImagePath(L"Sections").c_str());
    ASSERT_NE(nullptr, module);
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableModule(L"Sections.dll", ExactlyTheseModules, nullptr, nullptr);
    size_t prepared = 0;
    size_t looked = 0;
    const std::vector<LogRecord> log = ReadLog();
    for (size_t i = 0; i < log.size(); ++i)
    {
        prepared = log[i].message.compare(0, 17, "Preparing section") == 0 ? i : prepared;
        looked = log[i].message.compare(0, 24, "Determining page regions") == 0 ? i : looked;
    }
    EXPECT_NE(0u, prepared);
    EXPECT_LT(prepared, looked);
}

#else

#include "tests/Support/Integration/ModuleBridge.h"

#define MODULE_BRIDGE(Name) BRIDGE_SCENARIO_OF(ModuleBridge, ModuleEnabling, Name)

MODULE_BRIDGE(SendsWhatTheBrokerHasToKnowAndWaitsForIt)
{
    const auto blob = WaitFor<EnableModulesBlob>();
    ASSERT_TRUE(blob);
    const std::wstring path = AwaitText("path");
    const AddressSlot base = AwaitNumber("base");
    const std::vector<uint8_t> file = ReadFileBytes(path);
    const std::vector<uint8_t> module = ModuleBytes(path, base, file);
    const std::vector<uint8_t> executable = ExecutableBytes(file);
    const uint32_t imageSize = *reinterpret_cast<const uint32_t*>(module.data() + 2064);
    const std::vector<WirePageRange> ranges = QueryPageRanges(base, imageSize);
    const uint64_t rangeCount = ranges.size();
    const uint64_t zero = 0;

    ByteImage expected(56);
    expected.Item(0, module.data(), module.size()).U32(4, 1);
    expected.Item(8, executable.data(), executable.size()).U32(12, 1);
    expected.Item(16, &rangeCount, sizeof(rangeCount)).U32(20, 1);
    expected.Item(24, ranges.data(), ranges.size() * 24).U32(28, static_cast<uint32_t>(ranges.size()));
    expected.Item(32, &zero, sizeof(zero)).U32(36, 1);
    expected.Item(40, nullptr, 0).U32(44, 0);
    expected.U64(48, blob->latch);
    EXPECT_EQ(expected.Blob(12), blob.Bytes());
    EXPECT_NE(0u, blob->latch);
    ExpectCount(blob, 1);
}

MODULE_BRIDGE(SendsTheLargestModulesFirstAndWaitsForEachOfThem)
{
    ExpectCount(ExpectModules<EnableModulesBlob>({L"TvnLarge.dll", L"TvnMiddle.dll", L"TvnSmall.dll"}), 3);
}

MODULE_BRIDGE(WaitsAlsoForModulesThatTheFilterRefuses)
{
    ExpectCount(ExpectModules<EnableModulesBlob>({L"TvnMiddle.dll", L"TvnSmall.dll"}), 3);
}

MODULE_BRIDGE(SkipsFilesThatCannotBeReadAndWaitsForThem)
{
    ExpectCount(ExpectModules<EnableModulesBlob>({L"TvnMiddle.dll"}), 3);
}

MODULE_BRIDGE(SendsAnEmptyListIfNoFileCanBeRead)
{
    const auto blob = WaitFor<EnableModulesBlob>();
    ASSERT_TRUE(blob);
    ByteImage expected(56);
    for (size_t field = 0; field < 48; field += 8)
    {
        expected.Item(field, nullptr, 0);
    }
    expected.U64(48, blob->latch);
    EXPECT_EQ(expected.Blob(12), blob.Bytes());
    ExpectCount(blob, 3);
}

MODULE_BRIDGE(SendsNothingIfNothingIsLeft)
{
    const Message message = Receive();
    ASSERT_TRUE(message);
    EXPECT_EQ("LogNarrow", BlobName(message.Type()));
}

MODULE_BRIDGE(TakesAllFormsOfTheCall)
{
    Acknowledge({L"TvnSmall.dll"});
    Acknowledge({L"TvnLarge.dll"});
    Acknowledge({L"TvnLarge.dll", L"TvnSmall.dll"});
    Acknowledge({L"TvnLarge.dll", L"TvnMiddle.dll", L"TvnSmall.dll"});
    ExpectModules<DisableModulesBlob>({L"TvnSmall.dll"});
    ExpectModules<DisableModulesBlob>({L"TvnLarge.dll"});
    ExpectModules<DisableModulesBlob>({L"TvnSmall.dll", L"TvnLarge.dll"});
    ExpectModules<DisableModulesBlob>({L"TvnSmall.dll", L"TvnLarge.dll", L"TvnMiddle.dll"});
}

MODULE_BRIDGE(DisablesWhatIsLoadedInTheOrderOfTheCall)
{
    const auto blob = WaitFor<DisableModulesBlob>();
    ASSERT_TRUE(blob);
    std::vector<uint8_t> modules;
    std::vector<uint8_t> executables;
    for (const std::string name : {"TvnSmall.dll", "TvnMiddle.dll"})
    {
        const std::wstring path = AwaitText(name);
        const std::vector<uint8_t> file = ReadFileBytes(path);
        const std::vector<uint8_t> module = ModuleBytes(path, AwaitNumber(name + " base"), file);
        const std::vector<uint8_t> executable = ExecutableBytes(file);
        modules.insert(modules.end(), module.begin(), module.end());
        executables.insert(executables.end(), executable.begin(), executable.end());
    }
    ByteImage expected(16);
    expected.Item(0, modules.data(), modules.size()).U32(4, 2);
    expected.Item(8, executables.data(), executables.size()).U32(12, 2);
    EXPECT_EQ(expected.Blob(13), blob.Bytes());
}

MODULE_BRIDGE(IncludesImportsOnRequest)
{
    Acknowledge({L"TvnA.dll", L"TvnB.dll", L"TvnC.dll", L"TvnD.dll"});
    Acknowledge({L"TvnA.dll"});
    Acknowledge({L"TvnA.dll", L"TvnB.dll", L"TvnC.dll", L"TvnD.dll"});
    // A start module that another one imports comes twice.
    Acknowledge({L"TvnB.dll", L"TvnD.dll", L"TvnD.dll"});
    ExpectModules<DisableModulesBlob>({L"TvnB.dll", L"TvnD.dll", L"TvnD.dll"});
}

MODULE_BRIDGE(NormalizesAPathThatDiffersInCase)
{
    for (uint32_t i = 0; i < 2; ++i)
    {
        const std::vector<EnabledModule> modules = ModulesOf(Acknowledge({L"TvnSmall.dll"}));
        ASSERT_EQ(1u, modules.size());
        EXPECT_EQ(AwaitText("path"), modules[0].path);
    }
}

MODULE_BRIDGE(PreparesSectionsBeforeItLooksAtPages)
{
    const auto blob = Acknowledge({L"Sections.dll"});
    ASSERT_TRUE(blob);
    const EnabledModule module = ModulesOf(blob).front();
    const std::vector<WirePageRange> ranges = QueryPageRanges(module.base, module.imageSize);
    ASSERT_EQ(ranges.size(), module.pages.size());
    for (size_t i = 0; i < ranges.size(); ++i)
    {
        EXPECT_EQ(ranges[i].base, module.pages[i].base);
        EXPECT_EQ(ranges[i].size, module.pages[i].size);
        EXPECT_EQ(ranges[i].protection, module.pages[i].protection);
    }
}

#endif
