#include "Shared/Process/Windows/ModulePathSet.h"

#include "Shared/Memory/MemorySystem.h"

#include <emmintrin.h>
#include <new>
#include <string.h>
#include <utility>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace Torvane
{
namespace
{
constexpr uint32_t controlBits = 7;

uint8_t ControlOf(uint64_t hash)
{
    return static_cast<uint8_t>(hash & ((1U << controlBits) - 1));
}

uint32_t LowestSlot(uint32_t matches)
{
    return static_cast<uint32_t>(__builtin_ctz(matches));
}

__m128i LoadBytes(const void* at)
{
    return _mm_loadu_si128(static_cast<const __m128i*>(at));
}

constexpr uint32_t charactersAtOnce = sizeof(__m128i) / sizeof(wchar_t);

bool AreSameAtOnce(const wchar_t* a, const wchar_t* b)
{
    return _mm_movemask_epi8(_mm_cmpeq_epi8(LoadBytes(a), LoadBytes(b))) == 0xFFFF;
}

/// Eight characters at once, the last eight along with some that were compared already. With a control byte that
/// matches, two paths of the same length are mostly equal and are compared to their end: finding a path takes half as
/// long again with the runtime's `memcmp`.
bool AreSame(const wchar_t* a, const wchar_t* b, uint32_t length)
{
    if (length < charactersAtOnce)
    {
        return memcmp(a, b, length * sizeof(wchar_t)) == 0;
    }
    const uint32_t last = length - charactersAtOnce;
    for (uint32_t i = 0; i < last; i += charactersAtOnce)
    {
        if (!AreSameAtOnce(a + i, b + i))
        {
            return false;
        }
    }
    return AreSameAtOnce(a + last, b + last);
}

uint32_t SizeOfEntries(uint32_t slots)
{
    return slots * static_cast<uint32_t>(sizeof(OwnedWideString));
}
} // namespace

ModulePathSet::ModulePathSet(uint32_t slots)
{
    if (slots != 0)
    {
        TakeTable(slots);
    }
}

ModulePathSet::~ModulePathSet()
{
    if (capacity == 0)
    {
        return;
    }
    for (uint32_t slot = 0; slot < capacity; ++slot)
    {
        if (controls[slot] != emptySlot)
        {
            entries[slot].~OwnedWideString();
        }
    }
    Free(entries, SizeOfEntries(capacity));
    Free(controls, capacity);
}

bool ModulePathSet::Contains(const wchar_t* path, uint32_t length) const
{
    return count != 0 && Find(Hash(path, length), path, length) != notFound;
}

bool ModulePathSet::Insert(OwnedWideString& path)
{
    if (count >= capacity * 3 >> 2)
    {
        Grow();
    }
    const uint64_t hash = Hash(path.pointer, path.length);
    if (Find(hash, path.pointer, path.length) != notFound)
    {
        return false;
    }
    Place(hash, std::move(path));
    ++count;
    return true;
}

uint64_t ModulePathSet::Hash(const wchar_t* path, uint32_t length)
{
    return XXH3_64bits(path, length * sizeof(wchar_t));
}

void ModulePathSet::TakeTable(uint32_t slots)
{
    entries = static_cast<OwnedWideString*>(Allocate(SizeOfEntries(slots)).pointer);
    controls = static_cast<uint8_t*>(Allocate(slots).pointer);
    memset(controls, emptySlot, slots);
    capacity = slots;
}

void ModulePathSet::Grow()
{
    OwnedWideString* oldEntries = entries;
    uint8_t* oldControls = controls;
    const uint32_t oldCapacity = capacity;
    TakeTable(oldCapacity != 0 ? oldCapacity * 2 : groupSize);
    if (oldCapacity == 0)
    {
        return;
    }
    for (uint32_t slot = 0; slot < oldCapacity; ++slot)
    {
        if (oldControls[slot] != emptySlot)
        {
            OwnedWideString& path = oldEntries[slot];
            Place(Hash(path.pointer, path.length), std::move(path));
        }
    }
    Free(oldEntries, SizeOfEntries(oldCapacity));
    Free(oldControls, oldCapacity);
}

uint32_t ModulePathSet::HomeGroup(uint64_t hash) const
{
    const uint64_t groups = capacity / groupSize;
    return static_cast<uint32_t>((hash >> controlBits) & (groups - 1));
}

uint32_t ModulePathSet::NextGroup(uint32_t group) const
{
    return (group + 1) & (capacity / groupSize - 1);
}

uint32_t ModulePathSet::Find(uint64_t hash, const wchar_t* path, uint32_t length) const
{
    for (uint32_t group = HomeGroup(hash);; group = NextGroup(group))
    {
        for (uint32_t matches = Match(group, ControlOf(hash)); matches != 0; matches &= matches - 1)
        {
            const uint32_t slot = group * groupSize + LowestSlot(matches);
            if (IsPath(slot, path, length))
            {
                return slot;
            }
        }
        if (Match(group, emptySlot) != 0)
        {
            return notFound;
        }
    }
}

uint32_t ModulePathSet::FindEmptySlot(uint64_t hash) const
{
    uint32_t group = HomeGroup(hash);
    uint32_t empty = Match(group, emptySlot);
    while (empty == 0)
    {
        group = NextGroup(group);
        empty = Match(group, emptySlot);
    }
    return group * groupSize + LowestSlot(empty);
}

bool ModulePathSet::IsPath(uint32_t slot, const wchar_t* path, uint32_t length) const
{
    return entries[slot].length == length && AreSame(entries[slot].pointer, path, length);
}

uint32_t ModulePathSet::Match(uint32_t group, uint8_t control) const
{
    const __m128i bytes = LoadBytes(controls + group * groupSize);
    const __m128i wanted = _mm_set1_epi8(static_cast<char>(control));
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, wanted)));
}

void ModulePathSet::Place(uint64_t hash, OwnedWideString&& path)
{
    const uint32_t slot = FindEmptySlot(hash);
    new (&entries[slot]) OwnedWideString(std::move(path));
    controls[slot] = ControlOf(hash);
}
} // namespace Torvane
