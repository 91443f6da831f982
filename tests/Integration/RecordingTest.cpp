#include "tests/Support/Integration/IntegrationTest.h"

#include <string>
#include <vector>

#include <windows.h>

// Recordings of what really went over a link, read back with the command blobs.

#if TORVANE_HOST_HALF

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Files.h"

namespace
{
/// The lines that a run of blobs has written, on both outputs, and its exit code.
struct BlobsRun
{
    DWORD exitCode = 0xFFFFFFFF;
    std::string text;

    size_t Count(const std::string& part) const
    {
        size_t count = 0;
        for (size_t i = text.find(part); i != std::string::npos; i = text.find(part, i + 1))
        {
            ++count;
        }
        return count;
    }
};

std::wstring TemporaryPath(const wchar_t* name)
{
    return TemporaryFilesFolder() + L"torvane-" + std::to_wstring(GetCurrentProcessId()) + L"-" + name;
}

BlobsRun RunBlobs(const std::wstring& arguments)
{
    BlobsRun run;
    std::wstring commandLine = L"\"" + ExecutableFolder() + L"\\..\\blobs.exe\" " + arguments;

    const std::wstring outputPath = TemporaryPath(L"blobs.txt");
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = CreateFileW(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                     &inherited, CREATE_ALWAYS, 0, nullptr);
    startup.hStdError = startup.hStdOutput;
    PROCESS_INFORMATION process = {};
    EXPECT_TRUE(CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                               &startup, &process))
        << "blobs.exe is missing: build the preset windows-x64 first.";
    run.exitCode = WaitForChild(process);
    CloseHandle(startup.hStdOutput);
    run.text = ReadWholeFile(outputPath);
    DeleteFileW(outputPath.c_str());
    return run;
}

/// The types of a list in their order, each after its direction: "->Version".
std::vector<std::string> TypesIn(const std::string& list)
{
    std::vector<std::string> types;
    for (size_t i = list.find('\n') + 1; i < list.size(); i = list.find('\n', i) + 1)
    {
        const size_t direction = list.find_first_of("<-", i + 20); // after number and time
        const size_t name = list.find_first_not_of(' ', direction + 2);
        types.push_back(list.substr(direction, 2) + list.substr(name, list.find(' ', name) - name));
    }
    return types;
}
} // namespace

/// A host whose Bridge records, as requested by its environment.
class RecordedHost : public HostTest
{
protected:
    ~RecordedHost() override
    {
        for (const std::wstring& path : {recording, numbered, trace})
        {
            DeleteFileW(path.c_str());
        }
    }

    /// Ends the Agent and waits until its Bridge holds the files no longer.
    void EndAndRemove(const std::wstring& path)
    {
        Shutdown();
        EXPECT_TRUE(WaitForBridge());
        EXPECT_TRUE(WaitUntil([&path] { return DeleteFileW(path.c_str()) != FALSE; }));
    }

    const std::wstring recording = TemporaryPath(L"recording.jsonl");
    const std::wstring numbered = TemporaryPath(L"recording.2.jsonl");
    const std::wstring trace = TemporaryPath(L"trace.json");
};

HOST_TEST_OF(RecordedHost, Recording, HoldsAMemoryExchangeAndAReload)
{
    static const uint32_t number = 0x12345678;
    Publish("number", &number);
    SetEnvironmentVariableW(L"TORVANE_BRIDGE_RECORDING", recording.c_str());
    ConnectDefaultAgent();
    ASSERT_TRUE(Await("exchanged"));

    // The Bridge still writes it.
    const std::wstring quoted = L"\"" + recording + L"\"";
    const BlobsRun list = RunBlobs(L"list " + quoted);
    EXPECT_EQ(0u, list.exitCode);
    // Each side sends its version as soon as it can, so that the first two can change places.
    std::vector<std::string> types = TypesIn(list.text);
    ASSERT_GE(types.size(), 2u) << list.text;
    EXPECT_NE(types[0], types[1]);
    types.erase(types.begin(), types.begin() + 2);
    EXPECT_EQ(std::vector<std::string>({
                  "<-RegisterProjectPreferences",
                  "<-RegisterAgent",
                  "<-RegisterProcess",
                  "->ReadMemory",
                  "<-ReadMemoryResult",
                  "->RequestReload",
                  "<-Reload",
                  "->LoadPatchWindows",
                  "<-LogNarrow",
                  "->FinishAfterHotReload",
                  "->EchoRequest",
                  "<-EchoReply",
              }),
              types)
        << list.text;
    EXPECT_EQ(1u, list.Count("totalSize=4 data=78563412 token=0xFEDCBA9876543210\n")) << list.text;
    EXPECT_EQ(1u, list.Count("processId=" + std::to_string(GetCurrentProcessId()) + "\n")) << list.text;

    const BlobsRun filtered =
        RunBlobs(L"list --type ReadMemoryResult,Reload --direction from-agent " + quoted);
    EXPECT_EQ(std::vector<std::string>({"<-ReadMemoryResult", "<-Reload"}), TypesIn(filtered.text));

    const BlobsRun one = RunBlobs(L"show " + quoted + L" 7");
    EXPECT_EQ(0u, one.exitCode);
    EXPECT_EQ(1u, one.Count("000010  10 32 54 76 98 ba dc fe ")) << one.text;
    EXPECT_EQ(1u, one.Count("000018  78 56 34 12 ")) << one.text;

    const BlobsRun exported = RunBlobs(L"trace " + quoted + L" --output \"" + trace + L"\"");
    EXPECT_EQ("", exported.text);
    const std::string events = ReadWholeFile(trace);
    EXPECT_NE(std::string::npos, events.find(R"("name":"reload 1","cat":"operation","ph":"X")"));
    EXPECT_NE(std::string::npos, events.find(R"("name":"load no such patch.dll")"));
    EndAndRemove(recording);
}

HOST_TEST_OF(RecordedHost, Recording, TakesANumberIfTheFileExists)
{
    CloseHandle(CreateFileW(recording.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    SetEnvironmentVariableW(L"TORVANE_BRIDGE_RECORDING", recording.c_str());
    ConnectDefaultAgent();
    ASSERT_TRUE(Await("exchanged"));
    EXPECT_EQ("", ReadWholeFile(recording));
    EXPECT_EQ(5u, TypesIn(RunBlobs(L"list \"" + numbered + L"\"").text).size());
    EndAndRemove(numbered);
}

HOST_TEST_OF(RecordedHost, Recording, OfOneLinkTakesOneCall)
{
    PublishText("path", recording);
    ConnectDefaultAgent();
    ASSERT_TRUE(Await("exchanged"));
    EXPECT_EQ(5u, TypesIn(RunBlobs(L"list \"" + recording + L"\"").text).size());
    EndAndRemove(recording);
}

#else

BRIDGE_SCENARIO(Recording, HoldsAMemoryExchangeAndAReload)
{
    ASSERT_TRUE(SendReadMemory(link, 4, {AwaitNumber("number")}, 0xFEDCBA9876543210));
    ASSERT_TRUE(WaitFor<ReadMemoryResultBlob>());
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(WaitFor<ReloadBlob>());
    PatchCommand command;
    command.path = L"C:\\no such patch.dll";
    ASSERT_TRUE(SendLoadPatch(link, command));
    ASSERT_TRUE(link.WaitFor<LogBlob>(testTimeout, BlobType::LogNarrow));
    ASSERT_TRUE(SendFinishAfterHotReload(link));
    ASSERT_TRUE(Fence());
    Signal("exchanged");
}

BRIDGE_SCENARIO(Recording, TakesANumberIfTheFileExists)
{
    Signal("exchanged");
}

BRIDGE_SCENARIO_OF(BridgeTest, Recording, OfOneLinkTakesOneCall)
{
    const std::wstring path = AwaitText("path");
    ASSERT_TRUE(RecordLink(link, path));
    Link other(link.HostProcessId());
    EXPECT_FALSE(RecordLink(other, path)) << "The file exists.";
    ASSERT_TRUE(Connect());
    Signal("exchanged");
    StayUntilAgentGoes();
}

#endif
