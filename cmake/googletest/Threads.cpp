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

void std::condition_variable::notify_one()
{
    WakeConditionVariable(reinterpret_cast<CONDITION_VARIABLE*>(&state));
}

void std::condition_variable::notify_all()
{
    WakeAllConditionVariable(reinterpret_cast<CONDITION_VARIABLE*>(&state));
}

void std::condition_variable::wait(unique_lock<mutex>& lock)
{
    WaitMilliseconds(lock, INFINITE);
}

void std::condition_variable::WaitMilliseconds(unique_lock<mutex>& lock, unsigned long milliseconds)
{
    SleepConditionVariableSRW(reinterpret_cast<CONDITION_VARIABLE*>(&state),
                              reinterpret_cast<SRWLOCK*>(&lock.mutex()->state), milliseconds, 0);
}
