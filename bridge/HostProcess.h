#pragma once

/// \file
/// Reads memory and state of the Agent's process; each object belongs to one thread.

#include "bridge/RemoteAddress.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// An open 32-bit process.
class HostProcess
{
public:
    /// False (as a bool) if the process can't be opened.
    explicit HostProcess(uint32_t processId);
    ~HostProcess();
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    explicit operator bool() const
    {
        return process != nullptr;
    }

    uint32_t Id() const
    {
        return processId;
    }

    /// Full path of the process's executable. Empty on failure.
    std::wstring ExecutablePath() const;

    /// The module base of the process's executable. 0 on failure.
    RemoteAddress ExecutableBase() const;

    /// The image that contains an address.
    struct Image
    {
        RemoteAddress base;
        uint32_t size; ///< bytes
    };

    /// Zeros if no image contains the address.
    Image ImageAt(RemoteAddress address) const;

    /// Reads memory directly, without the Agent. Empty if part of it can't be read.
    std::vector<uint8_t> Read(RemoteAddress address, size_t size) const;

    /// Whether all of [address, address + size) can be read.
    bool CanRead(RemoteAddress address, size_t size) const;

    /// Whether all of [address, address + size) is code that can be executed.
    bool CanExecute(RemoteAddress address, size_t size) const;

    /// The range of pages with the same state that contains an address; its `protection` is 0 if they aren't committed.
    WirePageRange QueryPages(RemoteAddress address) const;

    /// Whether the process ends within the limit, in milliseconds.
    bool WaitForEnd(uint32_t milliseconds) const;

private:
    bool HasAccess(RemoteAddress address, size_t size, uint32_t protections) const;

    void* process;
    uint32_t processId;
};
} // namespace Torvane::Bridge
