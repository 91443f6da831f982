#include "ReloadThreads.h"

#include "Reloads.h"

#include <process.h>

namespace Torvane::Benchmarks
{
ReloadThreads::ReloadThreads(const uint8_t* itsFunctions)
    : functions(itsFunctions)
    , gate(CreateEventW(nullptr, TRUE, FALSE, nullptr))
    , ended(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
}

void ReloadThreads::SetCount(uint32_t count)
{
    if (threads.size() + 1 == count)
    {
        return;
    }
    SetEvent(ended);
    SetEvent(gate);
    for (const HANDLE thread : threads)
    {
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
    }
    threads.clear();
    ResetEvent(ended);
    ResetEvent(gate);
    isAtWork = 0;
    parked = 0;
    workers = static_cast<LONG>((count - 1) / 2);
    for (uint32_t i = 1; i < count; ++i)
    {
        threads.push_back(reinterpret_cast<HANDLE>(
            _beginthreadex(nullptr, 0, i % 2 == 0 ? &Work : &WaitForEnd, this, 0, nullptr)));
    }
    SetAtWork(false);
}

void ReloadThreads::SetAtWork(bool atWork)
{
    isAtWork = atWork ? 1 : 0;
    if (atWork)
    {
        SetEvent(gate);
    }
    else
    {
        ResetEvent(gate);
    }
    while (parked != (atWork ? 0 : workers))
    {
        Sleep(1);
    }
}

unsigned __stdcall ReloadThreads::WaitForEnd(void* threads)
{
    WaitForSingleObject(static_cast<ReloadThreads*>(threads)->ended, INFINITE);
    return 0;
}

unsigned __stdcall ReloadThreads::Work(void* threads)
{
    ReloadThreads& self = *static_cast<ReloadThreads*>(threads);
    for (;;)
    {
        while (self.isAtWork != 0)
        {
            self.CallFunctions();
            Sleep(1);
        }
        InterlockedIncrement(&self.parked);
        WaitForSingleObject(self.gate, INFINITE);
        InterlockedDecrement(&self.parked);
        if (WaitForSingleObject(self.ended, 0) == WAIT_OBJECT_0)
        {
            return 0;
        }
    }
}

void ReloadThreads::CallFunctions() const
{
    constexpr uint32_t calls = 2000;
    for (uint32_t i = 0; i < calls; ++i)
    {
        using Function = uint32_t __cdecl();
        const uint8_t* function = functions + i % mostFunctions * functionDistance;
        reinterpret_cast<Function*>(reinterpret_cast<uintptr_t>(function))();
    }
}
} // namespace Torvane::Benchmarks
