#include "Shared/Process/Windows/Process.h"

#include "Shared/Foundation/Windows/ResultOS.h"
#include "Shared/Memory/MemorySystem.h"
#include "Shared/Process/Windows/Thread.h"

#include <string.h>

namespace Torvane
{
namespace
{
constexpr uint32_t commandLineCapacity = 32768; ///< UTF-16 units: 65536 bytes
constexpr uint32_t maximumOutput = 0x40000000;
constexpr DWORD drainStep = 16384;

struct DrainBlock
{
    const char* name;
    DynamicRangeArray* output;
    HANDLE pipe;
};
static_assert(sizeof(DrainBlock) == 12);

/// Bytes that come with a failed read are kept.
uint32_t DrainOutput(DrainBlock& block)
{
    for (;;)
    {
        char bytes[drainStep] = {};
        DWORD count = 0;
        const BOOL read = ReadFile(block.pipe, bytes, drainStep, &count, nullptr);
        const DWORD error = GetLastError();
        if (count != 0)
        {
            block.output->Append(bytes, count);
        }
        if (read)
        {
            continue;
        }
        if (error != ERROR_BROKEN_PIPE && error != ERROR_OPERATION_ABORTED)
        {
            SetLastError(error);
            LogLastError(TVN_HERE, "Cannot read from stdout pipe");
        }
        return 0;
    }
}

} // namespace

Result<SpawnedProcess> Spawn(const wchar_t* executable, const wchar_t* workingDirectory,
                             const wchar_t* commandLine)
{
    const uint32_t flags = SpawnOfAgent;
    LogDebug(TVN_HERE, "Spawning process (%ls, %ls, %ls, %ls, %u)", executable,
             commandLine != nullptr ? commandLine : L"no cmdline",
             workingDirectory != nullptr ? workingDirectory : L"no working dir", L"no env", flags);
    wchar_t writableCommandLine[commandLineCapacity] = {};
    if (commandLine != nullptr)
    {
        memcpy(writableCommandLine, commandLine, (wcslen(commandLine) + 1) * sizeof(wchar_t));
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    PROCESS_INFORMATION information = {};
    if (!CreateProcessW(executable, writableCommandLine, nullptr, nullptr, FALSE,
                        CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT, nullptr, workingDirectory, &startup,
                        &information))
    {
        return MakeOSError("Cannot spawn process %ls.", executable);
    }
    return Success(MakeSpawnedProcess(nullptr, information, flags));
}

SpawnedProcess MakeSpawnedProcess(HANDLE outputPipe, const PROCESS_INFORMATION& information, uint32_t flags)
{
    SpawnedProcess process = {outputPipe, information, INVALID_HANDLE_VALUE, nullptr, 0, flags};
    if ((flags & SpawnDrainsOutput) != 0)
    {
        const Allocation block = Allocate(sizeof(DynamicRangeArray));
        process.output = static_cast<DynamicRangeArray*>(block.pointer);
        process.outputBlockSize = block.size;
        process.output->Create(maximumOutput);
        const DrainBlock drain = {drainThread.name, process.output, outputPipe};
        process.drainThread = StartThread<DrainBlock, DrainOutput>(drainThread.stackSize, drain);
    }
    return process;
}

void ReleaseSpawnedProcess(SpawnedProcess& process)
{
    CloseHandle(process.information.hProcess);
    CloseHandle(process.information.hThread);
    process.information.hProcess = nullptr;
    process.information.hThread = nullptr;
    if ((process.flags & SpawnDrainsOutput) != 0 && process.output != nullptr)
    {
        process.output->Destroy();
        Free(process.output, process.outputBlockSize);
        process.output = nullptr;
    }
}
} // namespace Torvane
