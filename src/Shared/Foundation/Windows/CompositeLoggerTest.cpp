#include "Shared/Foundation/Windows/CompositeLogger.h"

#include "Shared/Foundation/Windows/DebugOutputSink.h"
#include "Shared/Foundation/Windows/FileSink.h"
#include "tests/Support/FakeImport.h"

#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Steps = std::vector<std::string>;

/// What the log does to the world: "file", "debugger" and "break", with the first word of a record's text.
Steps steps;

std::string LastWord(const char* record, size_t length)
{
    std::string text(record, length);
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n'))
    {
        text.pop_back();
    }
    return text.substr(text.rfind(' ') + 1);
}

LONG CALLBACK StepOverBreakpoint(EXCEPTION_POINTERS* exception)
{
    if (exception->ExceptionRecord->ExceptionCode != DWORD{EXCEPTION_BREAKPOINT})
    {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    steps.emplace_back("break");
    const void* address = exception->ExceptionRecord->ExceptionAddress;
    exception->ContextRecord->Eip = static_cast<DWORD>(reinterpret_cast<uintptr_t>(address)) + 1;
    return EXCEPTION_CONTINUE_EXECUTION;
}

/// A log of which every effect becomes a step. Its debugger is present or not, as set.
class CompositeLoggerTest : public testing::Test
{
protected:
    CompositeLoggerTest()
        : handler(AddVectoredExceptionHandler(1, &StepOverBreakpoint))
    {
        steps.clear();
    }

    ~CompositeLoggerTest() override
    {
        RemoveVectoredExceptionHandler(handler);
    }

    void Panic()
    {
        logger.Panic("(ALL) ", "Panic", 5, "Agent.cpp", 1, 0);
    }

    bool debuggerIsPresent = false;
    FileSink fileSink{reinterpret_cast<HANDLE>(uintptr_t{0x1230})};
    DebugOutputSink debugOutputSink{255};
    CompositeLogger logger{&fileSink, &debugOutputSink};

private:
    struct Present
    {
        const bool& present;

        BOOL operator()(decltype(&IsDebuggerPresent)) const
        {
            return present;
        }
    };

    struct Write
    {
        BOOL operator()(decltype(&WriteFile), HANDLE, LPCVOID bytes, DWORD size, LPDWORD written,
                        LPOVERLAPPED) const
        {
            steps.push_back("file " + LastWord(static_cast<const char*>(bytes), size));
            *written = size;
            return TRUE;
        }
    };

    struct Output
    {
        void operator()(decltype(&OutputDebugStringA), LPCSTR text) const
        {
            steps.push_back("debugger " + LastWord(text, strlen(text)));
        }
    };

    void* handler;
    FakeImport<Present> present{"IsDebuggerPresent", Present{debuggerIsPresent}};
    FakeImport<Write> write{"WriteFile", Write{}};
    FakeImport<Output> output{"OutputDebugStringA", Output{}};
};
} // namespace

TEST_F(CompositeLoggerTest, PassesEachLevelToTheFileAndThenToTheDebugger)
{
    logger.Debug("(ALL) ", "Debug", 5, "Agent.cpp", 1, 0);
    logger.Success("(ALL) ", "Success", 7, "Agent.cpp", 1, 0);
    logger.Info("(ALL) ", 7, "Info", 4, "Agent.cpp", 1, 0);
    logger.Warning("(ALL) ", "Warning", 7, "Agent.cpp", 1, 0);
    logger.Error("(ALL) ", "Error", 5, "Agent.cpp", 1, 0);
    Panic();
    logger.Reserved();
    EXPECT_EQ(steps, Steps({"file Debug", "file Success", "debugger Success", "file Info", "debugger Info",
                            "file Warning", "debugger Warning", "file Error", "debugger Error", "file Panic",
                            "debugger Panic"}));
}

TEST_F(CompositeLoggerTest, KeepsTheFileWholeWhateverTheDebuggersMask)
{
    debugOutputSink.SetLevelMask(0);
    logger.Success("(ALL) ", "Success", 7, "Agent.cpp", 1, 0);
    logger.Info("(ALL) ", 7, "Info", 4, "Agent.cpp", 1, 0);
    logger.Warning("(ALL) ", "Warning", 7, "Agent.cpp", 1, 0);
    logger.Error("(ALL) ", "Error", 5, "Agent.cpp", 1, 0);
    Panic();
    EXPECT_EQ(steps, Steps({"file Success", "file Info", "file Warning", "file Error", "file Panic"}));
}

TEST_F(CompositeLoggerTest, WritesToTheDebuggerWithoutAFileToo)
{
    fileSink.SetFile(INVALID_HANDLE_VALUE);
    logger.Error("(ALL) ", "Error", 5, "Agent.cpp", 1, 0);
    Panic();
    EXPECT_EQ(steps, Steps({"debugger Error", "debugger Panic"}));
}

TEST_F(CompositeLoggerTest, BreaksAfterEachHalfOfAPanicUnderADebugger)
{
    debuggerIsPresent = true;
    Panic();
    EXPECT_EQ(steps, Steps({"file Panic", "break", "debugger Panic", "break"}));
}

TEST_F(CompositeLoggerTest, BreaksTwiceEvenWhenTheMaskHoldsThePanicBack)
{
    debuggerIsPresent = true;
    debugOutputSink.SetLevelMask(0xEF);
    Panic();
    EXPECT_EQ(steps, Steps({"file Panic", "break", "break"}));
}

TEST_F(CompositeLoggerTest, BreaksAtNoOtherLevel)
{
    debuggerIsPresent = true;
    logger.Debug("(ALL) ", "Debug", 5, "Agent.cpp", 1, 0);
    logger.Warning("(ALL) ", "Warning", 7, "Agent.cpp", 1, 0);
    logger.Error("(ALL) ", "Error", 5, "Agent.cpp", 1, 0);
    EXPECT_EQ(steps,
              Steps({"file Debug", "file Warning", "debugger Warning", "file Error", "debugger Error"}));
}

TEST_F(CompositeLoggerTest, AsksForTheDebuggerBeforeEachBreak)
{
    BreakIntoDebugger();
    EXPECT_EQ(steps, Steps());
    debuggerIsPresent = true;
    BreakIntoDebugger();
    EXPECT_EQ(steps, Steps({"break"}));
    debuggerIsPresent = false;
    BreakIntoDebugger();
    EXPECT_EQ(steps, Steps({"break"}));
}
} // namespace Torvane::Testing
