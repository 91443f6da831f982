#include "Threads.h"

#include <windows.h>

static_assert(sizeof(SRWLOCK) == sizeof(void*));
static_assert(sizeof(CONDITION_VARIABLE) == sizeof(void*));

void std::mutex::lock()
{
    AcquireSRWLockExclusive(reinterpret_cast<SRWLOCK*>(&state));
}

void std::mutex::unlock()
{
    ReleaseSRWLockExclusive(reinterpret_cast<SRWLOCK*>(&state));
}

void std::condition_variable::notify_all()
{
    WakeAllConditionVariable(reinterpret_cast<CONDITION_VARIABLE*>(&state));
}

void std::condition_variable::wait(unique_lock<mutex>& lock)
{
    SleepConditionVariableSRW(reinterpret_cast<CONDITION_VARIABLE*>(&state),
                              reinterpret_cast<SRWLOCK*>(&lock.mutex()->state), INFINITE, 0);
}
