#pragma once

/// \file
/// Access violations that a test expects of the Agent's threads; one object per process, any thread may look.

#include <stdint.h>

#include <windows.h>

namespace Torvane::Testing
{
/// An access violation as the handler saw it.
struct Fault
{
    uint32_t count = 0; ///< how many were caught
    DWORD threadId = 0; ///< of the first one, as all below
    bool write = false;
    const void* address = nullptr;
};

/// Catches each access violation whose address is in [start, start + size), as long as the object lives.
///
/// It either makes the page writable, so that the thread continues, or keeps the thread waiting permanently.
class FaultCatcher
{
public:
    enum Treatment
    {
        MakeWritable, ///< `PAGE_READWRITE` for the page of the address
        KeepThread,   ///< the Agent can't be shut down any more
    };

    FaultCatcher(const void* watchedStart, size_t watchedSize, Treatment wanted)
    {
        start = static_cast<const uint8_t*>(watchedStart);
        size = watchedSize;
        treatment = wanted;
        registration = AddVectoredExceptionHandler(1, &Handle);
    }

    ~FaultCatcher()
    {
        RemoveVectoredExceptionHandler(registration);
    }
    FaultCatcher(const FaultCatcher&) = delete;
    FaultCatcher& operator=(const FaultCatcher&) = delete;

    /// What has been caught so far.
    static Fault Caught()
    {
        Fault fault = first;
        fault.count = static_cast<uint32_t>(InterlockedCompareExchange(&count, 0, 0));
        return fault;
    }

private:
    static LONG CALLBACK Handle(EXCEPTION_POINTERS* exception)
    {
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        const uint8_t* address = reinterpret_cast<const uint8_t*>(record.ExceptionInformation[1]);
        if (record.ExceptionCode != EXCEPTION_ACCESS_VIOLATION || address < start ||
            static_cast<size_t>(address - start) >= size)
        {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        if (count == 0)
        {
            first.threadId = GetCurrentThreadId();
            first.write = record.ExceptionInformation[0] == 1;
            first.address = address;
        }
        InterlockedIncrement(&count);
        if (treatment == KeepThread)
        {
            Sleep(INFINITE);
        }
        DWORD before = 0;
        VirtualProtect(const_cast<uint8_t*>(address), 1, PAGE_READWRITE, &before);
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    void* registration;
    inline static const uint8_t* start;
    inline static size_t size;
    inline static Treatment treatment;
    inline static Fault first;
    inline static volatile LONG count;
};
} // namespace Torvane::Testing
