#pragma once

/// \file
/// Exceptions made on purpose, for the host halves of tests; any thread.

#include "Shared/Foundation/Windows/StructuredException.h"
#include "tests/Support/Integration/HostTest.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <vector>

#include <windows.h>

namespace Torvane::Testing
{
/// Base of host halves whose Bridge half is an `ExceptionBridge`.
class ExceptionHost : public HostTest
{
protected:
    /// Starts the Agent. \return when its exception handler is installed.
    bool Start()
    {
        ConnectDefaultAgent();
        return Await("installed");
    }

    /// Fails the test if a line of the log has this in its message.
    void ExpectNoLine(const std::string& part)
    {
        for (const LogRecord& record : ReadLog())
        {
            EXPECT_EQ(std::string::npos, record.message.find(part)) << record.message;
        }
    }
};

/// What belongs to a thread beside its registers, as a handler of an exception finds it.
struct ThreadState
{
    DWORD lastError;
    uint16_t x87Control;
    uint16_t x87Status;
    uint32_t sse; ///< control and status

    static ThreadState Get()
    {
        ThreadState state = {};
        state.lastError = GetLastError();
        __asm__ volatile("fnstcw %0\n\t"
                         "fnstsw %1\n\t"
                         "stmxcsr %2"
                         : "=m"(state.x87Control), "=m"(state.x87Status), "=m"(state.sse));
        return state;
    }
};

/// Code in two pages of its own.
class CodePages
{
public:
    /// \param offset where the bytes begin; everything around them is 0xCC.
    explicit CodePages(const std::vector<uint8_t>& bytes, DWORD protection = PAGE_EXECUTE_READ,
                       size_t offset = 0)
        : pages(static_cast<uint8_t*>(VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)))
        , start(pages + offset)
    {
        memset(pages, 0xCC, size);
        memcpy(start, bytes.data(), bytes.size());
        DWORD before = 0;
        VirtualProtect(pages, size, protection, &before);
    }

    ~CodePages()
    {
        VirtualFree(pages, 0, MEM_RELEASE);
    }

    CodePages(const CodePages&) = delete;
    CodePages& operator=(const CodePages&) = delete;

    uint8_t* Start() const
    {
        return start;
    }

    /// The pages from their first byte on.
    std::vector<uint8_t> Bytes() const
    {
        return std::vector<uint8_t>(pages, pages + size);
    }

    DWORD Protection() const
    {
        MEMORY_BASIC_INFORMATION information = {};
        VirtualQuery(pages, &information, sizeof(information));
        return information.Protect;
    }

    /// Calls the code as a function without arguments, which doesn't touch the last error: an exception in it mustn't
    /// either.
    uint32_t Run() const
    {
        SetLastError(lastError);
        const uint32_t result = reinterpret_cast<uint32_t(__cdecl*)()>(start)();
        EXPECT_EQ(lastError, GetLastError());
        return result;
    }

    static constexpr DWORD lastError = 4711;

    static constexpr size_t size = 0x2000;

private:
    uint8_t* pages;
    uint8_t* start;
};

/// Calls `function` in an exception frame. \return whether it has come to its end; otherwise an exception has
/// reached the frame.
template<typename Function>
bool EndsByItself(Function function)
{
    return RunInExceptionFrame([](void* context) { (*static_cast<Function*>(context))(); }, &function);
}

/// An exception as a handler saw it.
struct SeenException
{
    EXCEPTION_RECORD record;
    CONTEXT context;
    ThreadState state;
};

/// An exception that is raised only for what the OS makes of the answer to it.
constexpr DWORD occasion = 0x20001234;

/// The last vectored handler of the process: it sees what the handlers before it have passed on, of the thread that
/// made it, but for `occasion`. One at a time.
class LastHandler
{
public:
    LastHandler()
        : handle(AddVectoredExceptionHandler(0, &See))
    {
        owner = GetCurrentThreadId();
        count = 0;
        continues = false;
    }

    ~LastHandler()
    {
        RemoveVectoredExceptionHandler(handle);
    }

    LastHandler(const LastHandler&) = delete;
    LastHandler& operator=(const LastHandler&) = delete;

    /// From now on the handler ends the search: the thread continues at the exception's own context.
    static void ContinueExecution()
    {
        continues = true;
    }

    static size_t Count()
    {
        return count;
    }

    /// The latest of them.
    static const SeenException& Latest()
    {
        return latest;
    }

private:
    /// What becomes of each line that the Agent logs while no debugger is there.
    static bool IsDebugText(const EXCEPTION_RECORD& record)
    {
        return (record.ExceptionCode == 0x40010006 || record.ExceptionCode == 0x4001000A) &&
               record.NumberParameters != 0;
    }

    static LONG CALLBACK See(EXCEPTION_POINTERS* exception)
    {
        const ThreadState state = ThreadState::Get();
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        if (GetCurrentThreadId() != owner || record.ExceptionCode == occasion || IsDebugText(record))
        {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        latest = {record, *exception->ContextRecord, state};
        ++count;
        return continues ? EXCEPTION_CONTINUE_EXECUTION : EXCEPTION_CONTINUE_SEARCH;
    }

    static inline DWORD owner;
    static inline SeenException latest;
    static inline size_t count;
    static inline bool continues;

    void* handle;
};
/// Counts the exceptions of this process at `address` before the Agent sees them.
class FirstHandler
{
public:
    explicit FirstHandler(const void* wanted)
    {
        address = wanted;
        count = 0;
        handle = AddVectoredExceptionHandler(1, &See);
    }

    ~FirstHandler()
    {
        RemoveVectoredExceptionHandler(handle);
    }

    FirstHandler(const FirstHandler&) = delete;
    FirstHandler& operator=(const FirstHandler&) = delete;

    static LONG Count()
    {
        return InterlockedCompareExchange(&count, 0, 0);
    }

private:
    static LONG CALLBACK See(EXCEPTION_POINTERS* exception)
    {
        if (exception->ExceptionRecord->ExceptionAddress == address)
        {
            InterlockedIncrement(&count);
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    static inline const void* address;
    static inline volatile LONG count;
    void* handle;
};

} // namespace Torvane::Testing
