#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// A panic ends nothing. It breaks into a debugger before and after its text.

#if TORVANE_HOST_HALF

#include "tests/Support/FakeImport.h"

namespace
{
/// What the debugger received, in its order: a text, or "break".
std::vector<std::string> story;

LONG CALLBACK TakeBreak(EXCEPTION_POINTERS* exception)
{
    if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT)
    {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    story.emplace_back("break");
    ++exception->ContextRecord->Eip;
    return EXCEPTION_CONTINUE_EXECUTION;
}

void WINAPI TakeText(const char* text)
{
    story.emplace_back(text);
}

BOOL WINAPI SayDebugged()
{
    return TRUE;
}

/// The event of the hot restart, which is nobody's in these runs, isn't to be had.
volatile long eventsUntilRefusal;

HANDLE WINAPI RefuseEvent(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name)
{
    if (InterlockedDecrement(&eventsUntilRefusal) == 0)
    {
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return nullptr;
    }
    return CreateEventW(security, manual, set, name);
}

class PanicTest : public LinkTest
{
protected:
    /// A run with a panic in the middle of its startup, and a debugger that lets each break pass.
    void Run(bool debugged, uint32_t levels)
    {
        UseDefaultBridge();
        void* const module = Library().Module();
        const ReplacedImport event(module, "CreateEventW", &RefuseEvent);
        const ReplacedImport output(module, "OutputDebugStringA", &TakeText);
        const ReplacedImport presence(module, "IsDebuggerPresent",
                                      debugged ? &SayDebugged : &IsDebuggerPresent);
        void* const handler = AddVectoredExceptionHandler(1, &TakeBreak);
        eventsUntilRefusal = 7;
        const TvnLogFilter filter = {levels};
        StartDefaultAgent(nullptr, nullptr, &filter);
        EXPECT_EQ(ConnectionSucceeded, WaitForConnection()) << "The Agent continues.";
        EXPECT_TRUE(WaitForLog("Sender thread ready"));
        Shutdown();
        RemoveVectoredExceptionHandler(handler);
        EXPECT_EQ(1u, CountInLog("Cannot create event"));
        for (std::string& entry : story)
        {
            const size_t time = entry.find(" Torvane ");
            entry = time == std::string::npos ? entry : entry.substr(time);
        }
    }
};

constexpr uint32_t panicLevel = 16;
} // namespace

#define PANIC(Name) HOST_TEST_OF(PanicTest, Panic, Name)

PANIC(BreaksIntoADebuggerBeforeAndAfterItsText)
{
    Run(true, panicLevel);
    EXPECT_EQ((std::vector<std::string>{"break", " Torvane Panic  ] Cannot create event\r\n", "break"}),
              story);
}

PANIC(BreaksIntoADebuggerThatDoesNotGetItsText)
{
    Run(true, 0);
    EXPECT_EQ((std::vector<std::string>{"break", "break"}), story);
}

PANIC(BreaksIntoNothingWithoutADebugger)
{
    Run(false, panicLevel);
    EXPECT_EQ((std::vector<std::string>{" Torvane Panic  ] Cannot create event\r\n"}), story);
}

#endif
