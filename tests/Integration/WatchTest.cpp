#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The default Bridge with a folder of patches to watch.

#if TORVANE_HOST_HALF

#include "tests/Support/Files.h"
#include "tests/Support/Utf8.h"

#include <algorithm>
#include <functional>

namespace
{
using Call = int (*)(int value);

class WatchHost : public HostTest
{
protected:
    /// \param libraryPath the library whose functions are replaced, of the sources of `Watched`
    explicit WatchHost(const std::wstring& libraryPath = ImagePath(L"Watched"))
        : folder(TemporaryFilesFolder() + std::to_wstring(GetCurrentProcessId()) + L" patches")
        , library(libraryPath.substr(libraryPath.find_last_of(L'\\') + 1))
    {
        CreateDirectoryW(folder.c_str(), nullptr);
        SetEnvironmentVariableW(L"TORVANE_BRIDGE_WATCH", folder.c_str());
        module = LoadLibraryW(libraryPath.c_str());
        EXPECT_NE(nullptr, module);
        callScale = FindExport<Call>(module, "CallScale");
        callShift = FindExport<Call>(module, "CallShift");
    }

    ~WatchHost() override
    {
        for (const wchar_t* below : {L"\\loaded", L""})
        {
            RemoveFolder(folder + below); // but for what is still loaded
        }
    }

    /// Connects, and enables the library.
    TvnDefaultAgent& Connect()
    {
        UseDefaultBridge();
        TvnDefaultAgent& agent = ConnectDefaultAgent();
        agent.TvnEnableModule(library.c_str(), ExactlyTheseModules, nullptr, nullptr);
        EXPECT_TRUE(WaitForReport("watching "));
        return agent;
    }

    void Write(const std::wstring& name, const std::vector<uint8_t>& bytes) const
    {
        EXPECT_TRUE(WriteWholeFile(folder + L"\\" + name, bytes.data(), bytes.size()));
    }

    void Build(const std::wstring& image, const std::wstring& name = L"patch.dll") const
    {
        Write(name, ReadFileBytes(ImagePath(image)));
    }

    std::string Report() const
    {
        return ReadWholeFile(folder + L"\\bridge.log");
    }

    bool WaitForReport(const std::string& text) const
    {
        const bool found = WaitUntil([&] { return Report().find(text) != std::string::npos; });
        EXPECT_TRUE(found) << text << " is missing in:\n" << Report();
        return found;
    }

    std::wstring folder;
    std::wstring library; ///< name of the file
    HMODULE module;
    Call callScale;
    Call callShift;
};

class WatchHostWithPdb : public WatchHost
{
protected:
    WatchHostWithPdb()
        : WatchHost(ImagePath(L"WatchedByPdb"))
    {
    }
};

/// A host that has loaded a copy of the library, whose file a test can replace.
class WatchHostOfACopy : public WatchHost
{
protected:
    WatchHostOfACopy()
        : WatchHost(MakeCopy())
    {
    }

    ~WatchHostOfACopy() override
    {
        FreeLibrary(module);
        DeleteFileW(path.c_str());
        DeleteFileW(OldPath().c_str());
    }

    /// Puts another file in the place of the one that is loaded, as a linker does that can't write over it.
    void Rebuild(const std::vector<uint8_t>& bytes) const
    {
        EXPECT_TRUE(MoveFileW(path.c_str(), OldPath().c_str()));
        EXPECT_TRUE(WriteWholeFile(path, bytes.data(), bytes.size()));
    }

    const std::wstring path = CopyPath();

private:
    static std::wstring CopyPath()
    {
        return TemporaryFilesFolder() + L"Watched" + std::to_wstring(GetCurrentProcessId()) + L".dll";
    }

    static std::wstring MakeCopy()
    {
        EXPECT_TRUE(CopyFileW(ImagePath(L"Watched").c_str(), CopyPath().c_str(), FALSE));
        return CopyPath();
    }

    std::wstring OldPath() const
    {
        return path + L".old";
    }
};

/// The lines of a report from `start` on, without times and addresses.
std::string WithoutNumbers(const std::string& report, const std::string& start)
{
    std::string lines = report.substr(std::min(report.find(start), report.size()));
    for (size_t end = lines.find('\n'); end != std::string::npos; end = lines.find('\n', end + 1))
    {
        const bool isTime = end > 3 && lines.compare(end - 3, 3, " ms") == 0;
        const size_t address = lines.rfind(" at 0x", end);
        const size_t first = isTime ? lines.rfind(' ', end - 4) : address;
        if (first != std::string::npos && lines.find('\n', first) == end)
        {
            lines.erase(first, end - first);
            end = first;
        }
    }
    return lines;
}
} // namespace

#define WATCH_HOST(Name) HOST_TEST_OF(WatchHost, Watch, Name)

WATCH_HOST(PatchReplacesTheFunctionsOfTheSameName)
{
    Connect();
    EXPECT_EQ(14, callScale(7));
    EXPECT_EQ(8, callShift(7));

    Build(L"WatchedPatch1");
    EXPECT_TRUE(WaitForReport("Shift(int): routed"));
    EXPECT_EQ(1014, callScale(7));
    EXPECT_EQ(1008, callShift(7));
    EXPECT_EQ("reload 1: Scale(int), Shift(int)\n"
              "  Scale(int): routed, in Watched.dll\n"
              "  Shift(int): routed, in Watched.dll\n",
              WithoutNumbers(Report(), "reload 1"));
    EXPECT_EQ(1u, *FindExport<unsigned*>(module, "lastBefore"));
    EXPECT_EQ(1u, *FindExport<unsigned*>(module, "lastAfter"));
    EXPECT_STREQ("Scale(int), Shift(int)", FindExport<char*>(module, "lastNames"));

    Build(L"WatchedPatch2"); // over the first one, which is loaded under another name
    EXPECT_TRUE(WaitForReport("that of reload 1 stays"));
    EXPECT_EQ(2014, callScale(7));
    EXPECT_EQ(1008, callShift(7));
    EXPECT_EQ("reload 2: Scale(int)\n"
              "  Scale(int): routed, in Watched.dll\n"
              "  Renamed(int): new, no enabled module has it\n"
              "  Shift(int): not in this build of patch.dll, that of reload 1 stays\n",
              WithoutNumbers(Report(), "reload 2"));
    EXPECT_EQ(2u, *FindExport<unsigned*>(module, "lastAfter"));
}

WATCH_HOST(PatchOfGCCReplacesThemToo)
{
    Connect();
    Build(L"WatchedPatchOfGCC");
    EXPECT_TRUE(WaitForReport("Shift(int): routed"));
    EXPECT_EQ(1014, callScale(7));
    EXPECT_EQ(1008, callShift(7));
    EXPECT_EQ("reload 1: Scale(int), Shift(int)\n"
              "  Scale(int): routed, in Watched.dll\n"
              "  Shift(int): routed, in Watched.dll\n",
              WithoutNumbers(Report(), "reload 1"))
        << "No function of the runtime library's.";
}

HOST_TEST_OF(WatchHostWithPdb, Watch, FunctionsThatOnlyAPdbNamesAreReplacedToo)
{
    Connect();
    EXPECT_EQ(nullptr, GetProcAddress(module, "_Z5Scalei"));
    EXPECT_EQ(14, callScale(7));
    Build(L"WatchedPatch1");
    EXPECT_TRUE(WaitForReport("Shift(int): routed"));
    EXPECT_EQ(1014, callScale(7));
    EXPECT_EQ(1008, callShift(7));
    EXPECT_EQ("reload 1: Scale(int), Shift(int)\n"
              "  Scale(int): routed, in WatchedByPdb.dll\n"
              "  Shift(int): routed, in WatchedByPdb.dll\n",
              WithoutNumbers(Report(), "reload 1"));
    // Static functions have no public symbols, and functions written in assembly no others.
    Build(L"WatchedObstacles", L"obstacles.dll");
    EXPECT_TRUE(
        WaitForReport("refused obstacles.dll: no function of it can replace one of an enabled module; "
                      "Tiny: in WatchedByPdb.dll it is shorter than the 5 bytes of a jump; "
                      "Twin: 2 functions of WatchedByPdb.dll have that name\n"));
}

HOST_TEST_OF(WatchHostOfACopy, Watch, LibraryThatWasBuiltAnewIsNotPatched)
{
    Connect();
    std::vector<uint8_t> bytes = ReadFileBytes(path);
    auto* dosHeader = reinterpret_cast<IMAGE_DOS_HEADER*>(bytes.data());
    auto* headers = reinterpret_cast<IMAGE_NT_HEADERS32*>(bytes.data() + dosHeader->e_lfanew);
    ++headers->FileHeader.TimeDateStamp;
    Rebuild(bytes);

    Build(L"WatchedPatch1");
    EXPECT_TRUE(WaitForReport("refused patch.dll: no function of it can replace one of an enabled module\n"));
    const std::string fault = Utf8(library) +
                              " was built anew since the program has started, so its functions "
                              "can't be found: start the program again\n";
    const std::string report = Report();
    EXPECT_LT(report.find(fault), report.find("refused")) << report;
    EXPECT_EQ(14, callScale(7));
    EXPECT_EQ(8, callShift(7));
}

WATCH_HOST(SynchronizedAgentsHostAgreesFirst)
{
    UseDefaultBridge();
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    agent.TvnEnableModule(L"Watched.dll", ExactlyTheseModules, nullptr, nullptr);
    EXPECT_TRUE(WaitForReport("watching "));
    for (const int build : {1, 2})
    {
        Build(build == 1 ? L"WatchedPatch1" : L"WatchedPatch2");
        EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeLoad); }));
        EXPECT_EQ(14 + (build - 1) * 1000, callScale(7));
        agent.TvnReload(WaitUntilFinished);
        EXPECT_EQ(14 + build * 1000, callScale(7));
        EXPECT_TRUE(WaitForReport("reload " + std::to_string(build)));
    }
}

WATCH_HOST(PatchWaitsForAModuleToBeEnabled)
{
    UseDefaultBridge();
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    EXPECT_TRUE(WaitForReport("watching "));
    Build(L"WatchedPatch1");
    EXPECT_TRUE(WaitForReport("patch.dll waits until the program has enabled a module\n"));
    agent.TvnEnableModule(L"Watched.dll", ExactlyTheseModules, nullptr, nullptr);
    EXPECT_TRUE(WaitForReport("Shift(int): routed"));
    EXPECT_EQ(1014, callScale(7));
}

WATCH_HOST(PatchOfBeforeIsLoadedOnceItIsBuiltAgain)
{
    Build(L"WatchedPatch2", L"old.dll");
    Connect();
    EXPECT_TRUE(WaitForReport(
        "old.dll was there before the program has started: it is loaded once it is built again\n"));
    Build(L"WatchedPatch1");
    EXPECT_TRUE(WaitForReport("Shift(int): routed"));
    EXPECT_EQ(1014, callScale(7));
    Build(L"WatchedPatch2", L"old.dll");
    EXPECT_TRUE(WaitForReport("reload 2"));
    EXPECT_EQ(2014, callScale(7));
}

WATCH_HOST(FileThatIsStillWrittenIsWaitedFor)
{
    Connect();
    const std::vector<uint8_t> bytes = ReadFileBytes(ImagePath(L"WatchedPatch1"));
    const HANDLE file = CreateFileW((folder + L"\\patch.dll").c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                    nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD count = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size() / 2), &count, nullptr);
    Build(L"WatchedObstacles", L"other.dll");
    EXPECT_TRUE(WaitForReport("refused other.dll")) << "Meanwhile others are not waited for.";
    WriteFile(file, bytes.data() + count, static_cast<DWORD>(bytes.size()) - count, &count, nullptr);
    CloseHandle(file);
    EXPECT_TRUE(WaitForReport("Shift(int): routed"));
    EXPECT_EQ(std::string::npos, Report().find("refused patch.dll"));
    EXPECT_EQ(1014, callScale(7));
}

WATCH_HOST(UnusableFilesAreRefusedInASentenceAndTheHostContinues)
{
    Connect();
    struct Case
    {
        const wchar_t* name;
        std::function<std::vector<uint8_t>()> bytes;
        std::string reason;
    };
    const auto image = [](const wchar_t* name) {
        return [name] {
            return ReadFileBytes(ImagePath(name));
        };
    };
    const auto file = [](const std::wstring& path) {
        return [path] {
            return ReadFileBytes(path);
        };
    };
    const std::vector<Case> cases = {
        {L"text.dll", [] { return std::vector<uint8_t>(100, 'x'); }, "it isn't a Windows library\n"},
        {L"empty.dll", [] { return std::vector<uint8_t>(); }, "it isn't a Windows library\n"},
        {L"part.dll",
         [&] {
             std::vector<uint8_t> bytes = image(L"WatchedPatch1")();
             bytes.resize(bytes.size() / 2);
             return bytes;
         },
         "the file ends before its sections do\n"},
        {L"x64.dll", file(AgentFolder() + L"\\TVN_Agent_Bridge_x64.exe"),
         "it is built for 64-bit x64, but the host is a 32-bit x86 program\n"},
        {L"program.dll", file(ExecutableFolder() + L"\\IntegrationTests.exe"),
         "it is a program and not a library\n"},
        {L"silent.dll", image(L"NoCode"),
         "it exports no function: link it with -Wl,--export-all-symbols, or declare what is to be replaced "
         "as "
         "exported\n"},
        {L"other.dll", image(L"KitPatch"), "no function of it can replace one of an enabled module\n"},
        {L"obstacles.dll", image(L"WatchedObstacles"),
         "no function of it can replace one of an enabled module; Tiny: in Watched.dll it is shorter than "
         "the 5 bytes "
         "of a jump; Twin: 2 functions of Watched.dll have that name\n"},
        {L"absent.dll", image(L"WatchedImportsAbsent"), "it imports Absent.dll, which the host doesn't find"},
    };
    for (const Case& refused : cases)
    {
        Write(refused.name, refused.bytes());
        EXPECT_TRUE(WaitForReport("refused " + Utf8(refused.name) + ": "));
        const std::string report = Report();
        const size_t line = report.find("refused " + Utf8(refused.name) + ": ");
        EXPECT_NE(std::string::npos, report.find(refused.reason, line)) << report.substr(line);
        EXPECT_EQ(14, callScale(7));
    }
    EXPECT_EQ(35, FindExport<Call>(module, "CallOthers")(7));
    Build(L"WatchedPatch1");
    EXPECT_TRUE(WaitForReport("Shift(int): routed"));
    EXPECT_EQ(1014, callScale(7));
}

#else

// The default Bridge is the other half.

#endif
