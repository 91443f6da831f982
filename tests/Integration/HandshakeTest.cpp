#include "tests/Support/ByteImage.h"
#include "tests/Support/Files.h"
#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

#include <tlhelp32.h>

// The four Blobs that an Agent sends first, byte for byte.

#if TORVANE_HOST_HALF

namespace
{
/// Every member different, so that none can be taken for another.
TvnProjectPreferences MakeRecord()
{
    TvnProjectPreferences record = {};
    record.flag01 = true;
    record.directoryToBroker = L"C:\\Broker";
    record.text08 = "eight";
    record.text0C = "";
    record.number10 = 0x10111213;
    record.flag14 = true;
    record.wideText18 = L"wide eighteen";
    record.wideText1C = L"\u00E4\u20AC";
    record.text20 = "twenty";
    record.flag25 = true;
    record.wideText28 = L"";
    record.text2C = "two C";
    record.flag30 = true;
    record.flag33 = true;
    record.flag35 = true;
    record.wideText38 = L"wide thirty-eight";
    record.text3C = "three C";
    record.flag41 = true;
    record.flag44 = true;
    record.number48 = 0x48494A4B;
    record.wideText4C = L"wide four C";
    record.number50 = 0x50515253;
    record.flag54 = true;
    record.text58 = "fifty-eight";
    record.wideText5C = L"wide five C";
    record.flag60 = true;
    record.text64 = "sixty-four";
    record.number68 = 0x68696A6B;
    record.flag6C = true;
    return record;
}

DWORD WINAPI FindNoFinalPath(HANDLE, LPWSTR, DWORD, DWORD)
{
    SetLastError(ERROR_PATH_NOT_FOUND);
    return 0;
}
} // namespace

HOST_TEST(Handshake, SendsFourBlobsInOrder)
{
    PublishText("executable", ProgramPath());
    PublishText("command line", GetCommandLineW());
    ConnectDefaultAgent();
}

HOST_TEST(Handshake, RegistersASynchronizedAgent)
{
    ConnectSynchronizedAgent();
}

HOST_TEST(Handshake, NamesAPreferenceFileByItsAbsolutePath)
{
    PublishText("file", L"C:\\no folder\\of this name\\project.json");
    ConnectDefaultAgent(L"C:\\no folder\\of this name\\project.json");
}

HOST_TEST(Handshake, SearchesARelativePreferenceFileNextToTheExecutable)
{
    UseScenario("Handshake.NamesAPreferenceFileByItsAbsolutePath");
    PublishText("file", ExecutableFolder() + L"\\no project.json");
    TvnProjectPreferences unread = MakeRecord();
    ConnectDefaultAgent(L"no project.json", &unread);
}

HOST_TEST(Handshake, NormalizesThePathOfAPreferenceFileThatExists)
{
    UseScenario("Handshake.NamesAPreferenceFileByItsAbsolutePath");
    const std::wstring executable = ProgramPath();
    PublishText("file", executable);
    const std::wstring detour =
        ExecutableFolder() + L"\\agent\\.." + executable.substr(executable.rfind(L'\\'));
    ConnectDefaultAgent(detour.c_str());
}

HOST_TEST(Handshake, ReportsAPreferenceFileThatCannotBeNormalizedBeforeTheReceiverStarts)
{
    UseScenario("Handshake.NamesAPreferenceFileByItsAbsolutePath");
    const std::wstring executable = ProgramPath();
    PublishText("file", executable);
    ReplaceImport("GetFinalPathNameByHandleW", FindNoFinalPath);
    ConnectDefaultAgent(executable.c_str());
    ExpectLogOrder({"Creating sender thread",
                    "Cannot normalize path " + std::string(executable.begin(), executable.end()),
                    "Creating receiver thread"});
}

HOST_TEST(Handshake, HandsAPreferenceRecordOn)
{
    const TvnProjectPreferences record = MakeRecord();
    ConnectDefaultAgent(nullptr, &record);
}

#else

namespace
{
std::string OSVersionText()
{
    using GetVersion = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    const auto getVersion = reinterpret_cast<GetVersion>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    RTL_OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    getVersion(&version);
    return std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + ", " +
           std::to_string(version.dwBuildNumber);
}

std::vector<uint8_t> RegisterAgentBytes(uint32_t agentType)
{
    return ByteImage(1036).U32(0, agentType).Text(1032, OSVersionText()).Blob(1);
}

/// The name that a thread has been given; empty if there is none.
std::wstring ThreadName(uint32_t threadId)
{
    using GetDescription = HRESULT(WINAPI*)(HANDLE, wchar_t**);
    static const auto getDescription = reinterpret_cast<GetDescription>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "GetThreadDescription")));
    const HANDLE thread = OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, threadId);
    wchar_t* text = nullptr;
    std::wstring name;
    if (thread != nullptr && getDescription(thread, &text) >= 0)
    {
        name = text;
        LocalFree(text);
    }
    CloseHandle(thread);
    return name;
}

/// The id of the thread of that name, as soon as there is one. 0 if there is none.
uint32_t FindThread(uint32_t processId, const std::wstring& name)
{
    uint32_t found = 0;
    WaitUntil([&] {
        const HANDLE threads = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
        THREADENTRY32 entry = {};
        entry.dwSize = sizeof(entry);
        for (BOOL more = Thread32First(threads, &entry); more; more = Thread32Next(threads, &entry))
        {
            if (entry.th32OwnerProcessID == processId && ThreadName(entry.th32ThreadID) == name)
            {
                found = entry.th32ThreadID;
            }
        }
        CloseHandle(threads);
        return found != 0;
    });
    return found;
}

/// The ids of the threads come from the OS. The addresses of code and locks can't be known from outside: `known` has
/// them, and the tests of lock discovery compare them.
std::vector<uint8_t> RegisterProcessBytes(const std::wstring& executable, const std::wstring& commandLine,
                                          uint32_t processId, const RegisterProcessBlob& known)
{
    const std::vector<uint8_t> file = ReadFileBytes(executable);
    const uint32_t headers = *reinterpret_cast<const uint32_t*>(file.data() + 0x3C);
    ByteImage image(328);
    image.U64(0, file.size());
    image.Put(8, file.data() + headers + 4, 20);
    image.Put(28, file.data() + headers + 4 + 20, 224);
    image.U32(0x114, processId);
    image.U32(0x118, FindThread(processId, L"Torvane sender"));
    image.U32(0x11C, FindThread(processId, L"Torvane receiver"));
    image.U32(0x120, FindThread(processId, L"Torvane heartbeat"));
    image.U32(0x124, FindThread(processId, L"Torvane watchdog"));
    image.U64(0x128, known.spinForever);
    image.U64(0x130, known.loaderLock);
    image.U64(0x138, known.processHeapLock);
    return image.Text(0x140, executable).Text(0x144, commandLine).Blob(4);
}

void ExpectThreadsOfProcess(const std::vector<uint32_t>& threads, uint32_t processId)
{
    for (size_t i = 0; i < threads.size(); ++i)
    {
        const HANDLE thread = OpenThread(THREAD_QUERY_INFORMATION, FALSE, threads[i]);
        ASSERT_NE(nullptr, thread) << threads[i];
        EXPECT_EQ(processId, GetProcessIdOfThread(thread));
        CloseHandle(thread);
        for (size_t other = 0; other < i; ++other)
        {
            EXPECT_NE(threads[other], threads[i]);
        }
    }
}
} // namespace

BRIDGE_SCENARIO_OF(BridgeTest, Handshake, SendsFourBlobsInOrder)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    ASSERT_TRUE(SendVersion(link));
    const Message version = Receive();
    const Message preferences = Receive();
    const Message agentBlob = Receive();
    const Received<RegisterProcessBlob> processBlob(Receive());
    ASSERT_TRUE(version && preferences && agentBlob && processBlob);

    const uint8_t versionBytes[] = {10, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, '2', '.', '4', '.', '0', 0};
    EXPECT_EQ(std::vector<uint8_t>(versionBytes, versionBytes + sizeof(versionBytes)), version.Bytes());
    EXPECT_EQ(ByteImage(120).Blob(7), preferences.Bytes());
    EXPECT_EQ(RegisterAgentBytes(0), agentBlob.Bytes());
    EXPECT_EQ(RegisterProcessBytes(AwaitText("executable"), AwaitText("command line"), link.HostProcessId(),
                                   *processBlob),
              processBlob.Bytes());
    ExpectThreadsOfProcess(AgentThreads(*processBlob), link.HostProcessId());
    EXPECT_EQ(ByteImage(120).Bytes(), ReadProjectPreferences(link.HostProcessId()));
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO(Handshake, RegistersASynchronizedAgent)
{
    EXPECT_EQ(RegisterAgentBytes(1), agent.Bytes());
}

BRIDGE_SCENARIO(Handshake, NamesAPreferenceFileByItsAbsolutePath)
{
    ByteImage expected(120);
    expected.U8(0x74, 1).Text(0x70, AwaitText("file"));
    EXPECT_EQ(expected.Blob(7), projectPreferences.Bytes());
    EXPECT_EQ(expected.Bytes(), ReadProjectPreferences(link.HostProcessId()));
}

BRIDGE_SCENARIO(Handshake, HandsAPreferenceRecordOn)
{
    ByteImage expected(120);
    expected.U8(0x01, 1).U32(0x10, 0x10111213).U8(0x14, 1).U8(0x25, 1);
    expected.U8(0x30, 1).U8(0x33, 1).U8(0x35, 1).U8(0x41, 1).U8(0x44, 1).U32(0x48, 0x48494A4B);
    expected.U32(0x50, 0x50515253).U8(0x54, 1).U8(0x60, 1).U32(0x68, 0x68696A6B).U8(0x6C, 1).U8(0x75, 1);
    expected.Text(0x04, std::wstring(L"C:\\Broker"));
    expected.Text(0x08, std::string("eight"));
    expected.Text(0x0C, std::string());
    expected.Text(0x18, std::wstring(L"wide eighteen"));
    expected.Text(0x1C, std::wstring(L"\u00E4\u20AC"));
    expected.Text(0x20, std::string("twenty"));
    expected.Text(0x28, std::wstring());
    expected.Text(0x2C, std::string("two C"));
    expected.Text(0x38, std::wstring(L"wide thirty-eight"));
    expected.Text(0x3C, std::string("three C"));
    expected.Text(0x4C, std::wstring(L"wide four C"));
    expected.Text(0x58, std::string("fifty-eight"));
    expected.Text(0x5C, std::wstring(L"wide five C"));
    expected.Text(0x64, std::string("sixty-four"));
    EXPECT_EQ(expected.Blob(7), projectPreferences.Bytes());
    EXPECT_EQ(expected.Bytes(), ReadProjectPreferences(link.HostProcessId()));
}

#endif
