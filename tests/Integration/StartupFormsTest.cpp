#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The four startup functions: what they put into the host's table, and which project preferences they take.

#if TORVANE_HOST_HALF

#include "tests/Support/Files.h"

#include "tests/Support/ByteImage.h"

#include <string.h>

namespace
{
constexpr const char* namesForBoth[] = {
    "TvnOnConnection",
    "TvnLogMessageANSI",
    "TvnLogMessage",
    "TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI",
    "TvnEnableAutomaticHandlingOfDynamicallyLoadedModules",
    "TvnEnableModuleANSI",
    "TvnEnableModule",
    "TvnEnableModulesANSI",
    "TvnEnableModules",
    "TvnDisableModuleANSI",
    "TvnDisableModule",
    "TvnDisableModulesANSI",
    "TvnDisableModules",
};
constexpr const char* namesForDefault[] = {
    "TvnScheduleReload",    "TvnScheduleRestart",      "TvnSetBoolPreferences",
    "TvnSetIntPreferences", "TvnSetStringPreferences", "TvnSetShortcutPreferences",
};
constexpr const char* namesForSynchronized[] = {
    "TvnWantsReload",
    "TvnScheduleReload",
    "TvnReload",
    "TvnWantsRestart",
    "TvnScheduleRestart",
    "TvnRestart",
    "TvnSetBoolPreferences",
    "TvnSetIntPreferences",
    "TvnSetStringPreferences",
    "TvnSetShortcutPreferences",
};

constexpr uint32_t hostWord = 0x12345678;
constexpr uint32_t untouched = 0xABABABAB;

class StartupFormsTest : public HostTest
{
protected:
    /// A table followed by a word that isn't the Agent's.
    template<typename Table>
    struct Guarded
    {
        Guarded()
        {
            memset(&table, 0xAB, sizeof(table));
            memcpy(&table, &hostWord, sizeof(hostWord));
        }

        Table table;
        uint32_t following = untouched;
    };

    template<typename Table, typename Startup, size_t Count>
    void ExpectTable(Startup startup, const char* const (&names)[Count])
    {
        UseDefaultBridge();
        PrepareStart();
        static Guarded<Table> guarded;
        startup(&guarded.table, nullptr, nullptr, nullptr);
        const auto* words = reinterpret_cast<const uint32_t*>(&guarded);
        EXPECT_EQ(hostWord, *words++) << "The first member is the host's.";
        for (const char* name : namesForBoth)
        {
            EXPECT_EQ(AddressOf(name), *words++) << name;
        }
        for (const char* name : names)
        {
            EXPECT_EQ(AddressOf(name), *words++) << name;
        }
        EXPECT_EQ(untouched, *words++);
        EXPECT_EQ(reinterpret_cast<const uint32_t*>(&guarded + 1), words);
        EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    }

    /// The Bridge half is to get this payload.
    void ExpectPreferences(const ByteImage& payload)
    {
        UseScenario("StartupForms.PreferencesArrive");
        PublishBytes("preferences", payload.Bytes());
        PrepareStart();
    }

    /// The payload of project preferences in a file.
    static ByteImage ByFile(const std::wstring& path)
    {
        return ByteImage(120).U8(0x74, 1).Text(0x70, path);
    }

    /// A record that nobody can read.
    static const TvnProjectPreferences* UnreadableRecord()
    {
        return static_cast<const TvnProjectPreferences*>(
            VirtualAlloc(nullptr, sizeof(TvnProjectPreferences), MEM_RESERVE, PAGE_NOACCESS));
    }

    TvnDefaultAgent defaultAgent = {};
    TvnSynchronizedAgent synchronizedAgent = {};

private:
    uint32_t AddressOf(const char* name)
    {
        const auto function = GetProcAddress(static_cast<HMODULE>(Library().Module()), name);
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(function));
    }
};
} // namespace

#define STARTUP_FORMS(Name) HOST_TEST_OF(StartupFormsTest, StartupForms, Name)

STARTUP_FORMS(FillADefaultAgentsTable)
{
    ExpectTable<TvnDefaultAgent>(Library().TvnStartupDefaultAgent, namesForDefault);
}

STARTUP_FORMS(FillADefaultAgentsTableByTheNarrowForm)
{
    ExpectTable<TvnDefaultAgent>(Library().TvnStartupDefaultAgentANSI, namesForDefault);
}

STARTUP_FORMS(FillASynchronizedAgentsTable)
{
    ExpectTable<TvnSynchronizedAgent>(Library().TvnStartupSynchronizedAgent, namesForSynchronized);
}

STARTUP_FORMS(FillASynchronizedAgentsTableByTheNarrowForm)
{
    ExpectTable<TvnSynchronizedAgent>(Library().TvnStartupSynchronizedAgentANSI, namesForSynchronized);
}

STARTUP_FORMS(TakeNoNarrowPathForNone)
{
    ExpectPreferences(ByteImage(120));
    Library().TvnStartupDefaultAgentANSI(&defaultAgent, nullptr, nullptr, nullptr);
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
}

STARTUP_FORMS(TakeTheRecordWithoutANarrowPath)
{
    TvnProjectPreferences record = {};
    record.directoryToBroker = L"../../Broker"; // where the preferences with a generous time-out are
    record.wideText18 = record.wideText1C = record.wideText28 = L"";
    record.wideText38 = record.wideText4C = record.wideText5C = L"";
    record.text08 = record.text0C = record.text20 = record.text2C = record.text3C = "";
    record.text58 = record.text64 = "";
    record.number10 = 17;
    ByteImage expected(120);
    expected.U32(0x10, 17).U8(0x75, 1).Text(0x04, std::wstring(record.directoryToBroker));
    expected.Text(0x08, std::string()).Text(0x0C, std::string());
    expected.Text(0x18, std::wstring()).Text(0x1C, std::wstring());
    expected.Text(0x20, std::string()).Text(0x28, std::wstring()).Text(0x2C, std::string());
    expected.Text(0x38, std::wstring()).Text(0x3C, std::string()).Text(0x4C, std::wstring());
    expected.Text(0x58, std::string()).Text(0x5C, std::wstring()).Text(0x64, std::string());
    ExpectPreferences(expected);
    Library().TvnStartupSynchronizedAgentANSI(&synchronizedAgent, nullptr, nullptr, &record);
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
}

STARTUP_FORMS(TakeAWidePathAndNeverReadTheRecord)
{
    ExpectPreferences(ByFile(L"C:\\no folder\\of this name\\\u00E4.json"));
    Library().TvnStartupSynchronizedAgent(&synchronizedAgent, nullptr,
                                          L"C:\\no folder\\of this name\\\u00E4.json", UnreadableRecord());
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
}

STARTUP_FORMS(TakeANarrowPathAndNeverReadTheRecord)
{
    ExpectPreferences(ByFile(L"C:\\no folder\\of this name\\a.json"));
    Library().TvnStartupDefaultAgentANSI(&defaultAgent, nullptr, "C:\\no folder\\of this name\\a.json",
                                         UnreadableRecord());
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
}

STARTUP_FORMS(TakeALongNarrowPathWhole)
{
    const std::string path = "C:\\" + std::string(1000, 'x');
    ExpectPreferences(ByFile(std::wstring(path.begin(), path.end())));
    Library().TvnStartupSynchronizedAgentANSI(&synchronizedAgent, nullptr, path.c_str(), nullptr);
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
}

STARTUP_FORMS(TakeAnEmptyWidePathForAPath)
{
    ExpectPreferences(ByFile(L""));
    Library().TvnStartupDefaultAgent(&defaultAgent, nullptr, L"", UnreadableRecord());
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
}

STARTUP_FORMS(TakeAnEmptyNarrowPathForAPath)
{
    ExpectPreferences(ByFile(L""));
    Library().TvnStartupDefaultAgentANSI(&defaultAgent, nullptr, "", UnreadableRecord());
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
}

STARTUP_FORMS(DoNotLookForARelativePathInTheCurrentDirectory)
{
    const std::wstring folder = TemporaryFilesFolder();
    const std::wstring name = L"project_" + std::to_wstring(GetCurrentProcessId()) + L".json";
    const HANDLE file = CreateFileW((folder + name).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    ExpectPreferences(ByFile(ExecutableFolder() + L"\\" + name));
    ASSERT_TRUE(SetCurrentDirectoryW(folder.c_str()));
    Library().TvnStartupDefaultAgent(&defaultAgent, nullptr, name.c_str(), nullptr);
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    CloseHandle(file);
}

#else

BRIDGE_SCENARIO(StartupForms, PreferencesArrive)
{
    const std::vector<uint8_t> expected = AwaitBytes("preferences");
    ASSERT_LT(8u, projectPreferences.Bytes().size());
    EXPECT_EQ(expected,
              std::vector<uint8_t>(projectPreferences.Bytes().begin() + 8, projectPreferences.Bytes().end()));
    EXPECT_EQ(expected, ReadProjectPreferences(link.HostProcessId()));
}

#endif
