#include "bridge/SharedSections.h"

#include "Agent/Protocol/Names.h"

#include <string.h>
#include <string>

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
/// The size in the section's first bytes is 8 bytes larger than the payload.
constexpr uint32_t payloadTail = 8;
} // namespace

SharedSection::SharedSection(const wchar_t* name, const wchar_t* mutexName, uint32_t size,
                             uint32_t hostProcessId)
{
    const std::wstring identifier = std::to_wstring(hostProcessId);
    mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size,
                                 (name + identifier).c_str());
    mutex = CreateMutexW(nullptr, FALSE, (mutexName + identifier).c_str());
    if (mapping != nullptr)
    {
        view = static_cast<const uint8_t*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, size));
    }
}

SharedSection::~SharedSection()
{
    if (view != nullptr)
    {
        UnmapViewOfFile(view);
    }
    for (HANDLE handle : {mapping, mutex})
    {
        if (handle != nullptr)
        {
            CloseHandle(handle);
        }
    }
}

std::vector<uint8_t> SharedSection::Read(uint32_t offset, uint32_t size) const
{
    WaitForSingleObject(mutex, INFINITE);
    std::vector<uint8_t> bytes(view + offset, view + offset + size);
    ReleaseMutex(mutex);
    return bytes;
}

Heartbeat::Heartbeat(uint32_t hostProcessId)
    : section(heartbeatSectionPrefix, heartbeatMutexPrefix, heartbeatSectionSize, hostProcessId)
{
}

uint64_t Heartbeat::LastBeat() const
{
    uint64_t time = 0;
    memcpy(&time, section.Read(0, sizeof(time)).data(), sizeof(time));
    return time;
}

std::vector<uint8_t> ReadProjectPreferences(uint32_t hostProcessId)
{
    const SharedSection section(agentBridgeSectionPrefix, agentBridgeMutexPrefix, agentBridgeSectionSize,
                                hostProcessId);
    if (!section)
    {
        return {};
    }
    uint32_t size = 0;
    memcpy(&size, section.Read(0, sizeof(size)).data(), sizeof(size));
    if (size < payloadTail || size > agentBridgeSectionSize - sizeof(size))
    {
        return {};
    }
    return section.Read(sizeof(size), size - payloadTail);
}
} // namespace Torvane::Bridge
