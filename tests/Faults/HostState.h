#pragma once

/// \file
/// What a host has of its own and must have unchanged after an Agent's life; one thread.

#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include <windows.h>

namespace Torvane::Faults
{
/// The floating-point settings and the last error of this thread.
struct ThreadState
{
    uint16_t x87Control;
    uint32_t sseControl;

    static ThreadState Read();
    void Write() const;
    bool operator==(const ThreadState& other) const;
};

class HostState
{
public:
    using Report = std::function<void(const std::string& difference)>;

    /// Takes a note of the process's state. \param agent the library, whose own pages may change.
    explicit HostState(HMODULE agent);

    /// Reports what differs from the constructor's notes.
    void Compare(const Report& report);

private:
    /// An event and a second handle of it: whoever closes or signals one of them is noticed by the other.
    struct EventPair
    {
        HANDLE first;
        HANDLE second;
    };

    struct Pages
    {
        const uint8_t* base;
        size_t size;
        DWORD protection;
    };

    static std::vector<Pages> ReadProtections(const void* agent);
    void CompareEvents(const Report& report) const;
    void CompareProtections(const Report& report) const;
    static unsigned __stdcall Tick(void* state);

    const void* library;
    std::vector<EventPair> events;
    std::vector<Pages> pages;
    std::wstring folder;
    UINT errorMode;
    volatile LONG ticks = 0;
};
} // namespace Torvane::Faults
