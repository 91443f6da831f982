#pragma once

/// \file
/// The set of the module paths that have been visited; one thread at a time.

#include "Shared/Container/OwnedString.h"

#include <stdint.h>

namespace Torvane
{
/// A hash table with open addressing, in groups of 16 slots. Two paths are equal if their characters are: case counts.
/// Paths are never removed.
///
/// A slot has an entry and a control byte: `emptySlot`, or the low seven bits of the path's hash. A path's home group
/// follows from the other bits. A path is in the first group, from its home on, that had an empty slot when it was
/// inserted.
struct ModulePathSet
{
    static constexpr uint32_t groupSize = 16;
    static constexpr uint32_t initialCapacity = 2048;
    static constexpr uint8_t emptySlot = 0x80;

    OwnedWideString* entries = nullptr;
    uint8_t* controls = nullptr;
    uint32_t capacity = 0; ///< slots: 0, or a power of two that is a multiple of `groupSize`
    uint32_t count = 0;    ///< entries

    explicit ModulePathSet(uint32_t slots = initialCapacity);

    /// Frees every text, then the table.
    ~ModulePathSet();

    ModulePathSet(const ModulePathSet&) = delete;
    ModulePathSet& operator=(const ModulePathSet&) = delete;

    /// \param length characters, without the terminator.
    bool Contains(const wchar_t* path, uint32_t length) const;

    /// Moves a path in and leaves the caller's empty. A path that is in the set already stays with the caller.
    ///
    /// With three quarters of the slots taken, the table doubles first, whether or not the path is new.
    /// \return whether the path was new.
    bool Insert(OwnedWideString& path);

    /// The hash of a path: XXH3, 64 bits, without a seed, of the bytes of its `length` characters.
    static uint64_t Hash(const wchar_t* path, uint32_t length);

private:
    static constexpr uint32_t notFound = UINT32_MAX;

    void TakeTable(uint32_t slots);
    void Grow();
    uint32_t HomeGroup(uint64_t hash) const;
    uint32_t NextGroup(uint32_t group) const;
    uint32_t Find(uint64_t hash, const wchar_t* path, uint32_t length) const;
    uint32_t FindEmptySlot(uint64_t hash) const;
    bool IsPath(uint32_t slot, const wchar_t* path, uint32_t length) const;

    /// Bit `i` is set if slot `i` of the group has this control byte.
    uint32_t Match(uint32_t group, uint8_t control) const;

    void Place(uint64_t hash, OwnedWideString&& path);
};
} // namespace Torvane
