#include "tests/Support/DebugOutput.h"

#include <windows.h>

namespace Torvane::Testing
{
namespace
{
/// The exception by which `OutputDebugStringA` reaches a debugger: length with the terminator, and the text.
constexpr DWORD printException = 0x40010006;

SRWLOCK lock = SRWLOCK_INIT;
std::vector<std::string> texts;

LONG CALLBACK Catch(EXCEPTION_POINTERS* exception)
{
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode != printException || record.NumberParameters < 2)
    {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    const DWORD error = GetLastError();
    AcquireSRWLockExclusive(&lock);
    texts.emplace_back(reinterpret_cast<const char*>(record.ExceptionInformation[1]),
                       record.ExceptionInformation[0] - 1);
    ReleaseSRWLockExclusive(&lock);
    SetLastError(error);
    return EXCEPTION_CONTINUE_EXECUTION;
}
} // namespace

DebugOutput::DebugOutput()
    : handler(AddVectoredExceptionHandler(1, &Catch))
{
}

DebugOutput::~DebugOutput()
{
    RemoveVectoredExceptionHandler(handler);
}

std::vector<std::string> DebugOutput::Texts() const
{
    AcquireSRWLockExclusive(&lock);
    const std::vector<std::string> copy = texts;
    ReleaseSRWLockExclusive(&lock);
    return copy;
}
} // namespace Torvane::Testing
