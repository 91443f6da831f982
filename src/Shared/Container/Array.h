#pragma once

/// \file
/// A block of a fixed number of elements; one thread at a time.

#include "Shared/Memory/MemorySystem.h"

#include <stdint.h>
#include <string.h>
#include <type_traits>

namespace Torvane
{
/// Owns its block. The elements are cleared at construction; they are plain data.
template<typename Element>
struct Array
{
    static_assert(std::is_trivially_copyable_v<Element>);

    Element* pointer = nullptr;
    uint32_t count = 0;

    explicit Array(uint32_t elementCount)
        : count(elementCount)
    {
        pointer = static_cast<Element*>(Allocate(GetSize()).pointer);
        memset(static_cast<void*>(pointer), 0, GetSize());
    }

    Array(Array&& other) noexcept
        : pointer(other.pointer)
        , count(other.count)
    {
        other.pointer = nullptr;
        other.count = 0;
    }

    Array(const Array&) = delete;
    Array& operator=(const Array&) = delete;

    ~Array()
    {
        if (pointer != nullptr)
        {
            Free(pointer, GetSize());
        }
    }

    Element& operator[](uint32_t index)
    {
        return pointer[index];
    }

    const Element& operator[](uint32_t index) const
    {
        return pointer[index];
    }

    /// \return the block's size in bytes.
    uint32_t GetSize() const
    {
        return count * static_cast<uint32_t>(sizeof(Element));
    }
};
} // namespace Torvane
