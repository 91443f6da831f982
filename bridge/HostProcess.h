#pragma once

/// \file
/// The Agent's process, seen from outside; each object belongs to one thread.

#include "Agent/Protocol/Blob.h"

#include <stdint.h>
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

    /// Where the process's executable is loaded, as the OS lists its modules. 0 on failure.
    AddressSlot ExecutableBase() const;

    /// The image that an address lies in.
    struct Image
    {
        AddressSlot base;
        uint32_t size; ///< bytes
    };

    /// All zero if the address lies in none.
    Image ImageAt(AddressSlot address) const;

    /// Reads memory past the Agent. Empty if not all of it can be read.
    std::vector<uint8_t> Read(AddressSlot address, size_t size) const;

    /// The run of pages of like state at an address; its `protection` is 0 where nothing is committed.
    WirePageRange QueryPages(AddressSlot address) const;

    /// Whether the process ends within the limit, in milliseconds.
    bool WaitForEnd(uint32_t milliseconds) const;

private:
    void* process;
    uint32_t processId;
};
} // namespace Torvane::Bridge
