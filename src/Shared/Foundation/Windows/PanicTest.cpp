#include "Shared/Foundation/Result.h"
#include "Shared/Foundation/Windows/Clock.h"
#include "Shared/Foundation/Windows/Log.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/TestThread.h"

#include <string>
#include <vector>

// Panics in real processes, with a real debugger and without one.

namespace Torvane::Testing
{
namespace
{
using Events = std::vector<std::string>;

constexpr DWORD failureCode = 183;

/// Panics with a log of its own, and ends with what `Expect` returned. The argument is the file that the log goes to,
/// after the debugger's mask as one digit to the base 32.
const ChildRole panickingProcess(L"panicking process", [](const wchar_t* argument) {
    SetDebugOutputLevelMask(argument[0] == L'V' ? 0x1F : 0x0F);
    SetTimeOrigin();
    StartupLog(CreateFileW(argument + 1, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    const Result<HANDLE> failed = Failure{"CreateEventW(%hs) failed.", failureCode};
    const HANDLE payload = Expect(failed, "Cannot create event %d", 5);
    LogDebug(TVN_HERE, "continued");
    ShutdownLog();
    ExitProcess(static_cast<UINT>(reinterpret_cast<uintptr_t>(payload)));
});

uint32_t GetImageSize(const void* image)
{
    const auto* dos = static_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* headers =
        reinterpret_cast<const IMAGE_NT_HEADERS*>(static_cast<const uint8_t*>(image) + dos->e_lfanew);
    return headers->OptionalHeader.SizeOfImage;
}

/// Debugs a child to its end, from the breakpoints in its own code on, after which it lets it continue.
class ChildsDebugger
{
public:
    ChildsDebugger(const PROCESS_INFORMATION& debuggedChild, const LogFile& logFile)
        : child(debuggedChild)
        , file(logFile)
    {
        bool isRunning = true;
        while (isRunning)
        {
            DEBUG_EVENT event = {};
            if (!WaitForDebugEvent(&event, testTimeout))
            {
                ADD_FAILURE() << "nothing comes from the child";
                TerminateProcess(child.hProcess, 1);
                return;
            }
            const DWORD answer = Handle(event);
            isRunning = event.dwDebugEventCode != EXIT_PROCESS_DEBUG_EVENT;
            ContinueDebugEvent(event.dwProcessId, event.dwThreadId, answer);
        }
    }

    /// \return "break" and "text ..." as they came, each with what the log's file held by then.
    const Events& GetEvents() const
    {
        return events;
    }

private:
    DWORD Handle(const DEBUG_EVENT& event)
    {
        switch (event.dwDebugEventCode)
        {
        case CREATE_PROCESS_DEBUG_EVENT:
            image = static_cast<uint8_t*>(event.u.CreateProcessInfo.lpBaseOfImage);
            CloseHandle(event.u.CreateProcessInfo.hFile);
            return DBG_CONTINUE;
        case LOAD_DLL_DEBUG_EVENT:
            CloseHandle(event.u.LoadDll.hFile);
            return DBG_CONTINUE;
        case OUTPUT_DEBUG_STRING_EVENT:
            KeepText(event.u.DebugString);
            return DBG_CONTINUE;
        case EXCEPTION_DEBUG_EVENT:
            return HandleException(event.u.Exception);
        default:
            return DBG_CONTINUE;
        }
    }

    DWORD HandleException(const EXCEPTION_DEBUG_INFO& exception)
    {
        if (exception.ExceptionRecord.ExceptionCode != DWORD{EXCEPTION_BREAKPOINT})
        {
            return DBG_EXCEPTION_NOT_HANDLED;
        }
        const auto* address = static_cast<const uint8_t*>(exception.ExceptionRecord.ExceptionAddress);
        if (address >= image && address < image + GetImageSize(GetModuleHandleW(nullptr)))
        {
            Keep("break");
        }
        return DBG_CONTINUE;
    }

    void KeepText(const OUTPUT_DEBUG_STRING_INFO& info)
    {
        std::string text(info.nDebugStringLength, '\0');
        EXPECT_TRUE(
            ReadProcessMemory(child.hProcess, info.lpDebugStringData, text.data(), text.size(), nullptr));
        text.resize(strlen(text.c_str()));
        // Without the time, which isn't known here.
        Keep("text " + text.substr(0, 1) + text.substr(text.find(" Torvane")));
    }

    void Keep(const std::string& event)
    {
        const bool isInFile = file.Read().find("Cannot create event 5") != std::string::npos;
        events.push_back(event + (isInFile ? ", written to the file" : ", not in the file"));
    }

    PROCESS_INFORMATION child;
    const LogFile& file;
    const uint8_t* image = nullptr;
    Events events;
};

/// The log's file after the child's end, one record a line, from the tag on.
std::string ReadRecords(const LogFile& file)
{
    std::string records;
    const std::string bytes = file.Read();
    for (size_t start = bytes.find("\r\n"); start != std::string::npos;)
    {
        const size_t next = bytes.find("\r\n", start + 2);
        const std::string record = bytes.substr(start, next == std::string::npos ? next : next - start);
        records += record.substr(record.find(" | ") + 3, 3) + record.substr(record.rfind(" | ")) + "\n";
        start = next;
    }
    return records;
}

constexpr const char* allRecords = "PNC | Cannot create event 5\nDBG | continued\n";

std::wstring ArgumentFor(wchar_t mask, const LogFile& file)
{
    return mask + std::wstring(file.GetPath());
}
} // namespace

TEST(Panic, StopsTwiceInADebuggerWhichMayContinueFromBoth)
{
    LogFile file;
    CloseHandle(file.Release());
    const PROCESS_INFORMATION child =
        panickingProcess.Start(ArgumentFor(L'V', file).c_str(), DEBUG_ONLY_THIS_PROCESS);
    ASSERT_NE(child.hProcess, nullptr);
    const ChildsDebugger debugger(child, file);
    EXPECT_EQ(debugger.GetEvents(),
              Events({"break, written to the file",
                      "text [ Torvane Panic  ] Cannot create event 5\r\n, written to the file",
                      "break, written to the file"}));
    EXPECT_EQ(WaitForChild(child), failureCode);
    EXPECT_EQ(ReadRecords(file), allRecords);
}

TEST(Panic, StopsTwiceInADebuggerThatReceivesNoText)
{
    LogFile file;
    CloseHandle(file.Release());
    const PROCESS_INFORMATION child =
        panickingProcess.Start(ArgumentFor(L'F', file).c_str(), DEBUG_ONLY_THIS_PROCESS);
    ASSERT_NE(child.hProcess, nullptr);
    const ChildsDebugger debugger(child, file);
    EXPECT_EQ(debugger.GetEvents(), Events({"break, written to the file", "break, written to the file"}));
    EXPECT_EQ(WaitForChild(child), failureCode);
    EXPECT_EQ(ReadRecords(file), allRecords);
}

TEST(Panic, ReturnsWithoutADebuggerAndTheCodeTakesThePlaceOfTheValue)
{
    LogFile file;
    CloseHandle(file.Release());
    const PROCESS_INFORMATION child = panickingProcess.Start(ArgumentFor(L'V', file).c_str());
    ASSERT_NE(child.hProcess, nullptr);
    EXPECT_EQ(WaitForChild(child), failureCode);
    EXPECT_EQ(ReadRecords(file), allRecords);
}
} // namespace Torvane::Testing
