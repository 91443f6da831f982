#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

#if TORVANE_HOST_HALF

#include "tests/Support/Files.h"
#include "tests/Support/Modules.h"
#include "tests/Support/TemporaryFolder.h"
#include "tests/Support/Utf8.h"
#else
#include "tests/Support/Integration/PatchBridge.h"
#endif

// LoadPatchWindows of what can't be loaded.

#if TORVANE_HOST_HALF

namespace
{
/// The record after one with that message.
LogRecord RecordAfter(const std::vector<LogRecord>& log, const std::string& message)
{
    for (size_t i = 0; i + 1 < log.size(); ++i)
    {
        if (log[i].message == message)
        {
            return log[i + 1];
        }
    }
    return {};
}

class FailingLoadHost : public HostTest
{
protected:
    /// Has the Agent try, and checks what it logs. \param code that the loader returns.
    void ExpectFailure(const std::wstring& path, DWORD code)
    {
        ASSERT_FALSE(path.empty());
        UseScenario("LoadPatchFailure.IsReportedAsAnErrorAndNothingElse");
        PublishText("path", path);
        ConnectDefaultAgent();
        EXPECT_TRUE(Await("checked"));

        const std::string failedCall = "LoadLibraryW(" + Utf8(path) + ") failed.";
        ExpectLogOrder({"Processing Blob::LoadPatchWindows", "Loading patch from " + Utf8(path), failedCall,
                        "Failed to load patch from " + Utf8(path)});
        const LogRecord reason = RecordAfter(ReadLog(), failedCall);
        char codes[64];
        snprintf(codes, sizeof(codes), "Error: %lu, 0x%lX: ", code, code);
        EXPECT_EQ(codes, reason.message.substr(0, strlen(codes)));

        size_t errors = 0;
        for (const LogRecord& record : WithoutHeapSearch(ReadLog()))
        {
            errors += record.tag == "ERR";
            EXPECT_EQ(std::string::npos, record.message.find("Preparing section"));
            EXPECT_EQ(std::string::npos, record.message.find("page regions"));
        }
        EXPECT_EQ(3u, errors);
    }
};
} // namespace

#define FAILING_LOAD_TEST(Name) HOST_TEST_OF(FailingLoadHost, LoadPatchFailure, Name)

FAILING_LOAD_TEST(ReportsAFileThatIsNotThere)
{
    ExpectFailure(ImagePath(L"no such image"), ERROR_MOD_NOT_FOUND);
}

FAILING_LOAD_TEST(ReportsAFolderThatIsNotThere)
{
    ExpectFailure(ExecutableFolder() + L"\\no such folder\\PlainPatch.dll", ERROR_MOD_NOT_FOUND);
}

FAILING_LOAD_TEST(ReportsAPathWithForeignLetters)
{
    ExpectFailure(ExecutableFolder() + L"\\\u00C4rger \u20AC \u6F22 \U0001F600\\patch.dll",
                  ERROR_MOD_NOT_FOUND);
}

FAILING_LOAD_TEST(ReportsAFileThatIsNoImage)
{
    const TemporaryFolder folder(L"broken");
    ExpectFailure(folder.MakeFile(L"text.dll", std::string(5000, 't')), ERROR_BAD_EXE_FORMAT);
}

FAILING_LOAD_TEST(ReportsAnImageThatIsCutOff)
{
    const TemporaryFolder folder(L"broken");
    ExpectFailure(folder.MakeFile(L"cut.dll", ReadWholeFile(ImagePath(L"PlainPatch")).substr(0, 0x80)),
                  ERROR_BAD_EXE_FORMAT);
}

FAILING_LOAD_TEST(ReportsAnImageOfAnotherMachine)
{
    ExpectFailure(AgentFolder() + L"\\" + bridgeFileName, ERROR_BAD_EXE_FORMAT);
}

FAILING_LOAD_TEST(ReportsAnImageWhoseImportIsNotThere)
{
    ExpectFailure(ImagePath(L"ImportsAbsent"), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(nullptr, GetModuleHandleW(L"ImportsAbsent.dll"));
}

FAILING_LOAD_TEST(ReportsAnImageWhoseEntryPointRefuses)
{
    SetEnvironmentVariableA("TORVANE_TEST_LOAD_FAILS", "1");
    ExpectFailure(ImagePath(L"SlowLoad"), ERROR_DLL_INIT_FAILED);
    EXPECT_EQ(nullptr, GetModuleHandleW(L"SlowLoad.dll"));
}

HOST_TEST(LoadPatchFailure, IsNotTheEnd)
{
    PublishText("missing", ImagePath(L"no such image"));
    PublishText("imports", ImagePath(L"ImportsAbsent"));
    PublishText("absent", ExecutableFolder() + L"\\images\\absent\\Absent.dll");
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    const HMODULE module = GetModuleHandleW(L"ImportsAbsent.dll");
    ASSERT_NE(nullptr, module) << "What it imports has come, and it could be loaded.";
    EXPECT_EQ(1, FindExport<int (*)()>(module, "CallAbsentFunction")());
}

HOST_TEST(LoadPatchFailure, CutsALongPathInItsReport)
{
    const std::wstring path = L"C:\\" + std::wstring(1500, L'p') + L".dll";
    PublishText("path", path);
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(1u, CountInLog("Failed to load patch from " + Utf8(path))) << "The log has it all.";
}

HOST_TEST(LoadPatchFailure, SignalsTheWatchdogAsASuccessDoes)
{
    const std::wstring path = ImagePath(L"no such image");
    PublishText("path", path);
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    ExpectLogOrder({"Processing Blob::LoadPatchWindows", "Enabling watchdog thread",
                    "Loading patch from " + Utf8(path), "LoadLibraryW(" + Utf8(path) + ") failed.",
                    "Disabling watchdog thread", "Failed to load patch from " + Utf8(path)});
}

#else

namespace
{
class FailingLoadBridge : public PatchBridge
{
protected:
    void TryToLoad(const std::wstring& path, bool watchdog = false)
    {
        PatchCommand command;
        command.path = path;
        command.watchdog = watchdog;
        ASSERT_TRUE(SendLoadPatch(link, command));
    }

    std::vector<uint8_t> Report(const std::string& text)
    {
        return ByteImage(8).U32(0, 4).Text(4, text).Blob(10);
    }

    std::vector<uint8_t> ReportOf(const std::wstring& path)
    {
        return Report("Failed to load patch from " + Utf8(path));
    }
};
} // namespace

#define FAILING_LOAD_BRIDGE(Name) BRIDGE_SCENARIO_OF(FailingLoadBridge, LoadPatchFailure, Name)

FAILING_LOAD_BRIDGE(IsReportedAsAnErrorAndNothingElse)
{
    TryToLoad(AwaitText("path"));
    EXPECT_EQ(ReportOf(AwaitText("path")), ExpectFailed());
}

FAILING_LOAD_BRIDGE(SignalsTheWatchdogAsASuccessDoes)
{
    TryToLoad(AwaitText("path"), true);
    EXPECT_EQ(ReportOf(AwaitText("path")), ExpectFailed());
}

FAILING_LOAD_BRIDGE(CutsALongPathInItsReport)
{
    TryToLoad(AwaitText("path"));
    EXPECT_EQ(Report(("Failed to load patch from " + Utf8(AwaitText("path"))).substr(0, 1023)),
              ExpectFailed());
}

FAILING_LOAD_BRIDGE(IsNotTheEnd)
{
    TryToLoad(AwaitText("missing"));
    EXPECT_EQ(ReportOf(AwaitText("missing")), ExpectFailed());
    TryToLoad(AwaitText("imports"));
    EXPECT_EQ(ReportOf(AwaitText("imports")), ExpectFailed());
    EXPECT_TRUE(Load(AwaitText("absent")));
    PatchCommand command;
    command.path = AwaitText("imports");
    const auto loaded = Load(command);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(ExpectedAnswer(command, loaded->base), loaded.Bytes());
}

#endif
