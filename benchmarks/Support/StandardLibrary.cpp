#include "StandardLibrary.h"

#include <process.h>
#include <windows.h>

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(std::recursive_mutex));

std::recursive_mutex::recursive_mutex()
{
    InitializeCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(state));
}

std::recursive_mutex::~recursive_mutex()
{
    DeleteCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(state));
}

void std::recursive_mutex::lock()
{
    EnterCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(state));
}

void std::recursive_mutex::unlock()
{
    LeaveCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(state));
}

namespace
{
unsigned __stdcall RunBody(void* body)
{
    std::unique_ptr<std::function<void()>> owned(static_cast<std::function<void()>*>(body));
    (*owned)();
    return 0;
}
} // namespace

void std::thread::Start(std::function<void()>* body)
{
    handle = reinterpret_cast<void*>(_beginthreadex(nullptr, 0, RunBody, body, 0, nullptr));
}

void std::thread::join()
{
    WaitForSingleObject(handle, INFINITE);
    CloseHandle(handle);
    handle = nullptr;
}
