/// \file
/// A part of every program of unit tests: a test that takes too long, or that crashes, ends the process at once.

#include <gtest/gtest.h>
#include <stdio.h>
#include <string>

#ifdef _WIN32
#include <windows.h>

#include <process.h>
#else
#include <signal.h>
#include <unistd.h>
#endif

namespace
{
constexpr unsigned limit = 120; // seconds; longer than each wait of a test, so that those report first
constexpr int exitCode = 86;

std::string currentTest;

#ifdef _WIN32
// Not through this image's imports, which tests replace.
const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
const auto wait = reinterpret_cast<decltype(&WaitForSingleObject)>(
    reinterpret_cast<void*>(GetProcAddress(kernel, "WaitForSingleObject")));

/// Past the runtime library, whose locks a hanging test may own.
void EndProcess(const char* text, int size)
{
    DWORD count = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text, static_cast<DWORD>(size), &count, nullptr);
    TerminateProcess(GetCurrentProcess(), exitCode);
}

LONG WINAPI EndCrashed(EXCEPTION_POINTERS* exception)
{
    char text[400];
    EndProcess(text, snprintf(text, sizeof(text), "\n%s has crashed: exception 0x%08lX at 0x%p.\n",
                              currentTest.c_str(), exception->ExceptionRecord->ExceptionCode,
                              exception->ExceptionRecord->ExceptionAddress));
    return EXCEPTION_EXECUTE_HANDLER;
}
#else
void EndProcess(const char* text, int size)
{
    (void)!write(STDOUT_FILENO, text, static_cast<size_t>(size));
    _exit(exitCode);
}
#endif

void EndHanging()
{
    char text[400];
    EndProcess(text,
               snprintf(text, sizeof(text), "\n%s hangs: it has taken more than %u seconds and is ended.\n",
                        currentTest.c_str(), limit));
}

class TimeLimit : public testing::EmptyTestEventListener
{
public:
#ifdef _WIN32
    void OnTestProgramStart(const testing::UnitTest& /*program*/) override
    {
        SetUnhandledExceptionFilter(&EndCrashed);
        thread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Watch, this, 0, nullptr));
    }

    /// The thread ends before the process does: Wine can crash when it ends a thread that is just waking up.
    void OnTestProgramEnd(const testing::UnitTest& /*program*/) override
    {
        isOver = true;
        Restart();
        wait(thread, limit * 1000);
    }
#endif

    void OnTestStart(const testing::TestInfo& test) override
    {
        currentTest = std::string(test.test_suite_name()) + "." + test.name();
        Restart();
    }

    void OnTestEnd(const testing::TestInfo& /*test*/) override
    {
        Restart();
    }

private:
#ifdef _WIN32
    void Restart()
    {
        SetEvent(change);
    }

    static unsigned __stdcall Watch(void* context)
    {
        const TimeLimit& self = *static_cast<const TimeLimit*>(context);
        while (wait(self.change, limit * 1000) == WAIT_OBJECT_0)
        {
            if (self.isOver)
            {
                return 0;
            }
        }
        EndHanging();
        return 0;
    }

    HANDLE change = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE thread = nullptr;
    volatile bool isOver = false;
#else
    void Restart()
    {
        signal(SIGALRM, [](int) { EndHanging(); });
        alarm(limit);
    }
#endif
};

[[maybe_unused]] const bool isAdded =
    (testing::UnitTest::GetInstance()->listeners().Append(new TimeLimit), true);
} // namespace
