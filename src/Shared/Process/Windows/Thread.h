#pragma once

/// \file
/// How the Agent's threads start, are named and end. Any thread.

#include "Shared/Foundation/Logger.h"
#include "Shared/Foundation/Windows/ResultOS.h"
#include "Shared/Memory/MemorySystem.h"

#include <string.h>

#include <process.h>
#include <windows.h>

namespace Torvane
{
/// What is fixed about each kind of thread.
struct ThreadKind
{
    const char* name;
    uint32_t stackSize; ///< bytes
};

constexpr ThreadKind heartbeatThread = {"Torvane heartbeat", 16384};
constexpr ThreadKind watchdogThread = {"Torvane watchdog", 16384};
constexpr ThreadKind senderThread = {"Torvane sender", 65536};
constexpr ThreadKind receiverThread = {"Torvane receiver", 65536};
constexpr ThreadKind restartThread = {"Torvane restart", 16384};
constexpr ThreadKind connectThread = {"Torvane connect named pipe", 65536};
constexpr ThreadKind drainThread = {"Torvane stdout drain", 16384};

/// Gives the current thread its name, for debuggers: by the OS's function, where there is one, and by the exception
/// that debuggers know.
void SetCurrentThreadName(const char* name);

/// What every thread runs in. `block` begins with the thread's name, is the thread's own, and is freed at its end.
template<typename Block, uint32_t (*Body)(Block&)>
unsigned __stdcall ThreadTrampoline(void* argument)
{
    Block* block = static_cast<Block*>(argument);
    LogDebug(TVN_HERE, "Thread '%hs' started", block->name);
    SetCurrentThreadName(block->name);
    const uint32_t result = Body(*block);
    LogDebug(TVN_HERE, "Thread '%hs' exited with result %u", block->name, result);
    Free(block, sizeof(Block));
    return result;
}

/// Starts a thread with a copy of `block`. \return its handle; 0 after "Failed to create thread", and the copy of the
/// block is lost then.
template<typename Block, uint32_t (*Body)(Block&)>
HANDLE StartThread(uint32_t stackSize, const Block& block)
{
    void* copy = Allocate(sizeof(Block)).pointer;
    memcpy(copy, &block, sizeof(Block));
    const uintptr_t thread =
        _beginthreadex(nullptr, stackSize, ThreadTrampoline<Block, Body>, copy, 0, nullptr);
    if (thread == 0)
    {
        LogLastError(TVN_HERE, "Failed to create thread");
    }
    return reinterpret_cast<HANDLE>(thread);
}

/// Waits without a limit for a thread to end, closes its handle and makes the variable the invalid handle value.
void WaitForThread(HANDLE& thread);
} // namespace Torvane
