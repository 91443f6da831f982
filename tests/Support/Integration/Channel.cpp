#include "tests/Support/Integration/Channel.h"

#include "tests/Support/Wait.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <windows.h>

namespace Torvane::Testing
{
namespace
{
constexpr uint32_t entryCapacity = 96;
constexpr uint32_t failureCapacity = 32;

struct Entry
{
    char name[64];
    uint32_t size;
    uint8_t data[4096];
};

struct Failure
{
    char text[4096];
};

[[noreturn]] void Die(const char* what, const std::string& name)
{
    fprintf(stderr, "Test channel: %s (%s)\n", what, name.c_str());
    fflush(stderr);
    TerminateProcess(GetCurrentProcess(), 87);
    abort();
}
} // namespace

/// The same in both processes: fixed widths, no pointers.
struct Channel::Memory
{
    uint32_t bridgeProcessId;
    uint32_t state;
    uint32_t entryCount;
    uint32_t failureCount;
    Entry entries[entryCapacity];
    Failure failures[failureCapacity];
};

Channel::Channel(uint32_t hostProcessId)
{
    const std::wstring name = L"TorvaneTest_" + std::to_wstring(hostProcessId);
    mapping =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Memory), name.c_str());
    mutex = CreateMutexW(nullptr, FALSE, (name + L"_Mutex").c_str());
    memory = static_cast<Memory*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Memory)));
    if (mapping == nullptr || mutex == nullptr || memory == nullptr)
    {
        Die("no shared memory", std::to_string(GetLastError()));
    }
}

Channel::~Channel()
{
    UnmapViewOfFile(memory);
    CloseHandle(mapping);
    CloseHandle(mutex);
}

void Channel::Lock()
{
    // Abandoned if the other half has been ended, and owned for long if that one's threads are suspended.
    if (WaitForSingleObject(mutex, 2 * testTimeout) == WAIT_TIMEOUT)
    {
        Die("the other half doesn't release the mutex", std::to_string(GetCurrentProcessId()));
    }
}

void Channel::Unlock()
{
    ReleaseMutex(mutex);
}

void Channel::Publish(const std::string& name, const void* data, size_t size)
{
    std::vector<uint8_t> present;
    if (Find(name, present))
    {
        Die("a name is published twice", name);
    }
    Lock();
    if (memory->entryCount == entryCapacity || name.size() >= sizeof(Entry::name) ||
        size > sizeof(Entry::data))
    {
        Die("too many names, or too much data", name);
    }
    Entry& entry = memory->entries[memory->entryCount++];
    strcpy(entry.name, name.c_str());
    entry.size = static_cast<uint32_t>(size);
    if (size != 0)
    {
        memcpy(entry.data, data, size);
    }
    Unlock();
}

bool Channel::Find(const std::string& name, std::vector<uint8_t>& data)
{
    bool found = false;
    Lock();
    for (uint32_t i = 0; i < memory->entryCount && !found; ++i)
    {
        const Entry& entry = memory->entries[i];
        found = name == entry.name;
        if (found)
        {
            data.assign(entry.data, entry.data + entry.size);
        }
    }
    Unlock();
    return found;
}

void Channel::EnterBridge(uint32_t processId)
{
    Lock();
    memory->bridgeProcessId = processId;
    memory->state = static_cast<uint32_t>(BridgeState::Running);
    Unlock();
}

void Channel::SetState(BridgeState state)
{
    Lock();
    memory->state = static_cast<uint32_t>(state);
    Unlock();
}

void Channel::AddFailure(const std::string& text)
{
    Lock();
    if (memory->failureCount < failureCapacity)
    {
        Failure& failure = memory->failures[memory->failureCount++];
        snprintf(failure.text, sizeof(failure.text), "%s", text.c_str());
    }
    Unlock();
}

BridgeState Channel::State()
{
    Lock();
    const auto state = static_cast<BridgeState>(memory->state);
    Unlock();
    return state;
}

uint32_t Channel::BridgeProcessId()
{
    Lock();
    const uint32_t processId = memory->bridgeProcessId;
    Unlock();
    return processId;
}

std::vector<std::string> Channel::Failures()
{
    std::vector<std::string> failures;
    Lock();
    for (uint32_t i = 0; i < memory->failureCount; ++i)
    {
        failures.push_back(memory->failures[i].text);
    }
    Unlock();
    return failures;
}
} // namespace Torvane::Testing
