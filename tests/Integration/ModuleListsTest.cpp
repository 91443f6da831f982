#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The lists in the Blobs of modules: their memory, however many ranges it has, and what happens to modules that can't be
// announced. And what a call leaves open.

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/HandleTrace.h"
#include "tests/Support/Integration/ModuleHost.h"
#include "tests/Support/Utf8.h"

#include <algorithm>

namespace
{
class ModuleListHost : public ModuleHost
{
protected:
    /// Where a loaded library is: its path and its base, each under the library's name.
    void PublishPlace(const std::string& name)
    {
        PublishText(name, FinalPath(libraries.PathOf(name)));
        Publish(name + " base", GetModuleHandleA(name.c_str()));
    }

    /// Makes every second page of a library read-only, from the second page on.
    void StripePages(const char* name, uint32_t pages)
    {
        auto* image = reinterpret_cast<uint8_t*>(GetModuleHandleA(name));
        for (uint32_t page = 1; page < pages; page += 2)
        {
            DWORD before = 0;
            ASSERT_TRUE(VirtualProtect(image + page * 0x1000, 0x1000, PAGE_READONLY, &before));
        }
    }

    /// \return how many records have this tag and exactly this message.
    size_t CountInLog(const std::string& tag, const std::string& message) const
    {
        const std::vector<LogRecord> log = ReadLog();
        return static_cast<size_t>(std::count_if(log.begin(), log.end(), [&](const LogRecord& record) {
            return record.tag == tag && record.message == message;
        }));
    }

    /// \return how many messages begin like this.
    size_t CountBeginnings(const std::string& beginning) const
    {
        const std::vector<LogRecord> log = ReadLog();
        return static_cast<size_t>(std::count_if(log.begin(), log.end(), [&](const LogRecord& record) {
            return record.message.compare(0, beginning.size(), beginning) == 0;
        }));
    }
};

/// What a filter was shown, one path after the other.
bool TVN_CALL KeepPath(void* context, const char* path)
{
    static_cast<std::vector<std::string>*>(context)->push_back(path);
    return true;
}

/// A library with a name that `TestLibraries` has no way to write; freed at the end.
class NamedLibrary
{
public:
    NamedLibrary(const TestLibraries& libraries, const std::wstring& name)
        : path(libraries.PathOf("") + name)
    {
        const std::vector<uint8_t> bytes = BuildTestLibrary("Tvn.dll", {});
        EXPECT_TRUE(WriteWholeFile(path, bytes.data(), bytes.size()));
        module = LoadLibraryW(path.c_str());
        EXPECT_NE(nullptr, module);
    }

    ~NamedLibrary()
    {
        FreeLibrary(module);
    }

    NamedLibrary(const NamedLibrary&) = delete;
    NamedLibrary& operator=(const NamedLibrary&) = delete;

    std::wstring path;

private:
    HMODULE module;
};

/// The encoding of narrow strings of the runtime that the Agent uses.
void SetAgentLocale(const char* name)
{
    using SetLocale = char*(__cdecl*)(int category, const char* name);
    const auto set = FindExport<SetLocale>(GetModuleHandleW(L"ucrtbase.dll"), "setlocale");
    constexpr int allCategories = 0;
    EXPECT_NE(nullptr, set(allCategories, name));
}
} // namespace

#define LIST_HOST(Name) HOST_TEST_OF(ModuleListHost, ModuleLists, Name)

LIST_HOST(HaveTheRangesOfEveryModuleAfterEachOther)
{
    LoadThree();
    StripePages("TvnLarge.dll", 8);
    StripePages("TvnSmall.dll", 2);
    for (const char* name : {"TvnLarge.dll", "TvnMiddle.dll", "TvnSmall.dll"})
    {
        PublishPlace(name);
    }
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableModules(three, 3, ExactlyTheseModules, nullptr, nullptr);
    ExpectNoErrorsInLog();
}

LIST_HOST(HaveMoreThan1024Ranges)
{
    ASSERT_TRUE(libraries.Write("TvnStriped.dll", {}, 1300 * 0x1000));
    ASSERT_TRUE(libraries.Write("TvnAlsoStriped.dll", {}, 1200 * 0x1000));
    ASSERT_NE(nullptr, libraries.Load("TvnStriped.dll"));
    ASSERT_NE(nullptr, libraries.Load("TvnAlsoStriped.dll"));
    StripePages("TvnStriped.dll", 1299);
    StripePages("TvnAlsoStriped.dll", 1199);
    PublishPlace("TvnStriped.dll");
    PublishPlace("TvnAlsoStriped.dll");
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    const wchar_t* both[] = {L"TvnAlsoStriped.dll", L"TvnStriped.dll"};
    agent.TvnEnableModules(both, 2, ExactlyTheseModules, nullptr, nullptr);
    ExpectNoErrorsInLog();
}

LIST_HOST(AreNotSentForAnUnloadedModuleThatIsDisabledWithItsImports)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnDisableModule(L"TvnNotLoaded.dll", IncludeImports, nullptr, nullptr);
    EXPECT_EQ(1u, CountInLog("ERR", "Failed to load module TvnNotLoaded.dll"));
    EXPECT_EQ(0u, CountBeginnings("Failed to unload module"));
    ExpectLogOrder({"API TvnDisableModule", "Disabling module with options 1", "API TvnGenericDisableModules",
                    "Failed to load module TvnNotLoaded.dll"});
    agent.TvnLogMessageANSI("after this");
}

namespace
{
const wchar_t* refusedPath;
LONG refusals;

/// Fails for the first one who opens the file.
HANDLE WINAPI RefuseOnce(const wchar_t* path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                         DWORD disposition, DWORD flags, HANDLE model)
{
    if (_wcsicmp(path, refusedPath) == 0 && InterlockedIncrement(&refusals) == 1)
    {
        SetLastError(ERROR_SHARING_VIOLATION);
        return INVALID_HANDLE_VALUE;
    }
    return CreateFileW(path, access, sharing, security, disposition, flags, model);
}

std::vector<DWORD> ProtectionsOf(const void* module)
{
    std::vector<DWORD> protections;
    for (uint32_t offset = 0; offset < ImageHeaders(module).OptionalHeader.SizeOfImage; offset += 0x1000)
    {
        protections.push_back(QueryMemory(static_cast<const uint8_t*>(module) + offset).Protect);
    }
    return protections;
}
} // namespace

LIST_HOST(LeaveAModuleAloneWhoseFileCannotBeOpened)
{
    const HMODULE module = LoadLibraryW(ImagePath(L"Sections").c_str());
    ASSERT_NE(nullptr, module);
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(module, path, MAX_PATH);
    refusedPath = path;
    const std::vector<DWORD> protections = ProtectionsOf(module);
    ReplaceImport("CreateFileW", &RefuseOnce);
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnEnableModule(L"Sections.dll", ExactlyTheseModules, nullptr, nullptr);
    EXPECT_EQ(1, refusals) << "The file isn't opened again.";
    EXPECT_EQ(protections, ProtectionsOf(module));
    EXPECT_EQ(1u, CountInLog("ERR", "Failed to open executable " + Narrow(path)));
    EXPECT_EQ(0u, CountBeginnings("Preparing section"));
    EXPECT_EQ(0u, CountBeginnings("Determining page regions"));
}

LIST_HOST(TakeNarrowPathsInTheEncodingOfTheLocale)
{
    const NamedLibrary library(libraries, L"Tvn\u00C4\u6728.dll");
    PublishText("path", FinalPath(library.path));
    const std::string path = Utf8(library.path);
    const char* const paths[] = {path.c_str()};
    SetAgentLocale(".UTF8");
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    std::vector<std::string> shown;
    agent.TvnEnableModuleANSI(paths[0], ExactlyTheseModules, &shown, &KeepPath);
    agent.TvnEnableModulesANSI(paths, 1, ExactlyTheseModules, &shown, &KeepPath);
    agent.TvnDisableModuleANSI(paths[0], ExactlyTheseModules, &shown, &KeepPath);
    agent.TvnDisableModulesANSI(paths, 1, ExactlyTheseModules, &shown, &KeepPath);
    // There is room for one byte per character of the wide path: the two take three bytes more.
    EXPECT_EQ(std::vector<std::string>(4, path.substr(0, path.size() - 3)), shown);
    EXPECT_EQ(2u, CountInLog("INF", "Enabling module " + path));
    EXPECT_EQ(2u, CountInLog("INF", "Disabling module " + path));
    ExpectNoErrorsInLog();
    SetAgentLocale("C");
}

LIST_HOST(ShowNothingToANarrowFilterOfAPathThatTheLocaleLacks)
{
    SetAgentLocale("C");
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    std::vector<std::string> shown;
    agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI(&shown, &KeepPath);
    {
        const NamedLibrary loaded(libraries, L"Tvn\u6728.dll");
        PublishText("path", FinalPath(loaded.path));
    }
    ASSERT_LE(1u, shown.size());
    EXPECT_EQ("", shown[0]);
    EXPECT_TRUE(Await("received"));
    Shutdown(); // before what the filter writes to
}

LIST_HOST(LeaveNothingOpen)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}, {"TvnC.dll"}}, 0x6000));
    ASSERT_TRUE(libraries.Write("TvnB.dll", {}, 0x5000));
    ASSERT_TRUE(libraries.Write("TvnC.dll"));
    ASSERT_NE(nullptr, libraries.Load("TvnA.dll"));
    ASSERT_TRUE(libraries.Rename("TvnC.dll"));
    ASSERT_TRUE(WriteWholeFile(libraries.PathOf("TvnC.dll"), "a file that is no image", 23));
    const HandleTrace* trace = new HandleTrace(Library().Module()); // for the rest of the process
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    const std::vector<std::string> open = trace->OpenHandles();
    const auto countCreated = [trace](const std::string& kind) {
        const std::vector<std::string> calls = trace->OwnCalls();
        return static_cast<size_t>(std::count_if(calls.begin(), calls.end(), [&](const std::string& call) {
            return call.find("create " + kind + ' ') == 0;
        }));
    };
    const size_t eventsBefore = countCreated("event");
    const size_t filesBefore = countCreated("file");
    const size_t mappingsBefore = countCreated("mapping");
    const size_t viewsBefore = countCreated("view");
    const auto expectCreatedAndClosed = [&](const char* call, size_t events, size_t files, size_t mappings) {
        EXPECT_EQ(open, trace->OpenHandles()) << call;
        EXPECT_EQ(events, countCreated("event") - eventsBefore) << call;
        EXPECT_EQ(files, countCreated("file") - filesBefore) << call;
        EXPECT_EQ(mappings, countCreated("mapping") - mappingsBefore) << call;
        EXPECT_EQ(mappings, countCreated("view") - viewsBefore) << call;
    };
    // For each module that is announced: its file is mapped for its identity and for its sections, and opened for its
    // path. The walk maps all three, and one of them is no image, which is tried again later.
    agent.TvnEnableModule(L"TvnA.dll", IncludeImports, nullptr, nullptr);
    expectCreatedAndClosed("enable with imports", 1, 10, 8);
    agent.TvnEnableModule(L"TvnA.dll", ExactlyTheseModules, nullptr, nullptr);
    expectCreatedAndClosed("enable", 2, 13, 10);
    agent.TvnDisableModule(L"TvnA.dll", IncludeImports, nullptr, nullptr);
    expectCreatedAndClosed("disable with imports", 2, 21, 16);
    EXPECT_EQ(0u, trace->FailedCloses());
}

namespace
{
/// Follows the signals that hand Blobs over to the sender thread.
struct QueueSignals
{
    static inline DWORD watchedThread = 0;
    static inline LONG signals = 0;
    static inline std::function<void()> afterSignal; ///< on the watched thread

    static BOOL WINAPI Signal(HANDLE semaphore, LONG count, LONG* before)
    {
        const BOOL signalled = ReleaseSemaphore(semaphore, count, before);
        if (GetCurrentThreadId() == watchedThread)
        {
            ++signals;
            if (afterSignal)
            {
                afterSignal();
            }
        }
        return signalled;
    }
};
} // namespace

LIST_HOST(AreQueuedAlsoAfterTheLinkIsLost)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll"));
    ASSERT_NE(nullptr, libraries.Load("TvnA.dll"));
    ReplaceImport("ReleaseSemaphore", &QueueSignals::Signal);
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    {
        const TestThread caller(
            [&agent] { agent.TvnEnableModule(L"TvnA.dll", ExactlyTheseModules, nullptr, nullptr); });
        EXPECT_TRUE(Await("received"));
        Signal("lose the link");
        ASSERT_TRUE(caller.WaitForEnd());
    }
    const TestThread late([&agent] {
        QueueSignals::watchedThread = GetCurrentThreadId();
        agent.TvnEnableModule(L"TvnA.dll", ExactlyTheseModules, nullptr, nullptr);
        EXPECT_EQ(1, QueueSignals::signals);
        agent.TvnDisableModule(L"TvnA.dll", ExactlyTheseModules, nullptr, nullptr);
        EXPECT_EQ(2, QueueSignals::signals);
    });
    EXPECT_TRUE(late.WaitForEnd());
}

LIST_HOST(AreQueuedOnceTheirLatchCanBeCountedDown)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll"));
    ASSERT_NE(nullptr, libraries.Load("TvnA.dll"));
    ReplaceImport("ReleaseSemaphore", &QueueSignals::Signal);
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    LONG left = -1;
    // The call is held where its Blob has just been queued, until the Agent has executed the answer.
    QueueSignals::afterSignal = [&] {
        const uint64_t latch = AwaitNumber("counted down");
        left = *reinterpret_cast<volatile LONG*>(static_cast<uintptr_t>(latch));
        Signal("looked");
    };
    QueueSignals::watchedThread = GetCurrentThreadId();
    agent.TvnEnableModule(L"TvnA.dll", ExactlyTheseModules, nullptr, nullptr);
    QueueSignals::watchedThread = 0;
    EXPECT_EQ(0, left);
}

#else

#include "tests/Support/Integration/ModuleBridge.h"

namespace
{
class ModuleListBridge : public ModuleBridge
{
protected:
    /// Compares each byte of an `EnableModules` with the files and the memory of these modules, in their
    /// order, and lets the call continue. \return how many page ranges there are.
    size_t ExpectWhole(const std::vector<std::string>& names)
    {
        const auto blob = WaitFor<EnableModulesBlob>();
        EXPECT_TRUE(blob);
        if (!blob)
        {
            return 0;
        }
        std::vector<uint8_t> modules;
        std::vector<uint8_t> executables;
        std::vector<uint64_t> counts;
        std::vector<WirePageRange> ranges;
        for (const std::string& name : names)
        {
            const std::wstring path = AwaitText(name);
            const AddressSlot base = AwaitNumber(name + " base");
            const std::vector<uint8_t> file = ReadFileBytes(path);
            const std::vector<uint8_t> module = ModuleBytes(path, base, file);
            const std::vector<uint8_t> executable = ExecutableBytes(file);
            const uint32_t imageSize = *reinterpret_cast<const uint32_t*>(module.data() + 2064);
            const std::vector<WirePageRange> own = QueryPageRanges(base, imageSize);
            modules.insert(modules.end(), module.begin(), module.end());
            executables.insert(executables.end(), executable.begin(), executable.end());
            counts.push_back(own.size());
            ranges.insert(ranges.end(), own.begin(), own.end());
        }
        const uint32_t count = static_cast<uint32_t>(names.size());
        const std::vector<uint64_t> zeros(count);
        ByteImage expected(56);
        expected.Item(0, modules.data(), modules.size()).U32(4, count);
        expected.Item(8, executables.data(), executables.size()).U32(12, count);
        expected.Item(16, counts.data(), count * 8).U32(20, count);
        expected.Item(24, ranges.data(), ranges.size() * 24).U32(28, static_cast<uint32_t>(ranges.size()));
        expected.Item(32, zeros.data(), count * 8).U32(36, count);
        expected.Item(40, nullptr, 0);
        expected.U64(48, blob->latch);
        EXPECT_TRUE(expected.Blob(12) == blob.Bytes());
        EXPECT_EQ(ranges.size(), blob->pageRanges.count);
        SendDecrementLatch(link, blob->latch, count);
        return ranges.size();
    }
};
} // namespace

#define LIST_BRIDGE(Name) BRIDGE_SCENARIO_OF(ModuleListBridge, ModuleLists, Name)

LIST_BRIDGE(HaveTheRangesOfEveryModuleAfterEachOther)
{
    EXPECT_LE(10u, ExpectWhole({"TvnLarge.dll", "TvnMiddle.dll", "TvnSmall.dll"}));
}

LIST_BRIDGE(HaveMoreThan1024Ranges)
{
    EXPECT_LE(2400u, ExpectWhole({"TvnStriped.dll", "TvnAlsoStriped.dll"}));
}

LIST_BRIDGE(AreNotSentForAnUnloadedModuleThatIsDisabledWithItsImports)
{
    const Message message = Receive();
    ASSERT_TRUE(message);
    EXPECT_EQ("LogNarrow", BlobName(message.Type()));
}

LIST_BRIDGE(LeaveAModuleAloneWhoseFileCannotBeOpened)
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
    SendDecrementLatch(link, blob->latch);
}

LIST_BRIDGE(TakeNarrowPathsInTheEncodingOfTheLocale)
{
    const std::wstring path = AwaitText("path");
    for (uint32_t i = 0; i < 2; ++i)
    {
        const std::vector<EnabledModule> enabled = ModulesOf(Acknowledge({FileNameOf(path)}));
        ASSERT_EQ(1u, enabled.size());
        EXPECT_EQ(path, enabled[0].path);
    }
    for (uint32_t i = 0; i < 2; ++i)
    {
        const std::vector<EnabledModule> disabled =
            ModulesOf(ExpectModules<DisableModulesBlob>({FileNameOf(path)}));
        ASSERT_EQ(1u, disabled.size());
        EXPECT_EQ(path, disabled[0].path);
    }
}

LIST_BRIDGE(ShowNothingToANarrowFilterOfAPathThatTheLocaleLacks)
{
    const auto blob = WaitFor<EnableModulesBlob>();
    ASSERT_TRUE(blob);
    const std::vector<EnabledModule> modules = ModulesOf(blob);
    ASSERT_EQ(1u, modules.size());
    EXPECT_EQ(AwaitText("path"), modules[0].path);
    Signal("received");
}

LIST_BRIDGE(LeaveNothingOpen)
{
    const auto blob = ExpectModules<EnableModulesBlob>({L"TvnA.dll", L"TvnB.dll"});
    ASSERT_TRUE(blob);
    SendDecrementLatch(link, blob->latch, 3); // also for the module that is skipped
    Acknowledge({L"TvnA.dll"});
    ExpectModules<DisableModulesBlob>({L"TvnA.dll", L"TvnB.dll"});
}

LIST_BRIDGE(AreQueuedAlsoAfterTheLinkIsLost)
{
    EXPECT_TRUE(WaitFor<EnableModulesBlob>());
    Signal("received");
    ASSERT_TRUE(Await("lose the link"));
    Die();
}

LIST_BRIDGE(AreQueuedOnceTheirLatchCanBeCountedDown)
{
    const auto blob = WaitFor<EnableModulesBlob>();
    ASSERT_TRUE(blob);
    SendDecrementLatch(link, blob->latch);
    ASSERT_TRUE(Fence());
    Publish("counted down", blob->latch);
    ASSERT_TRUE(Await("looked"));
    SendDecrementLatch(link, blob->latch); // a call that missed the first one ends
}

#endif
