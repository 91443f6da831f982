#pragma once

/// \file
/// An array that grows by doubling; one thread at a time.

#include "Shared/Memory/MemorySystem.h"

#include <stdint.h>
#include <string.h>
#include <type_traits>

namespace Torvane
{
/// Owns its block. The elements are plain data and are copied as bytes.
template<typename Element>
struct DynamicArray
{
    static_assert(std::is_trivially_copyable_v<Element>);

    Element* pointer = nullptr;
    uint32_t size = 0;     ///< of the block, in bytes
    uint32_t capacity = 0; ///< elements that the block holds
    uint32_t count = 0;    ///< elements in use

    DynamicArray() = default;

    explicit DynamicArray(uint32_t initialCapacity)
    {
        TakeBlock(initialCapacity);
    }

    DynamicArray(DynamicArray&& other) noexcept
    {
        TakeOver(other);
    }

    DynamicArray& operator=(DynamicArray&& other) noexcept
    {
        if (this != &other)
        {
            Destroy();
            TakeOver(other);
        }
        return *this;
    }

    ~DynamicArray()
    {
        Destroy();
    }

    void Append(const Element& element)
    {
        if (count == capacity)
        {
            Grow();
        }
        pointer[count++] = element;
    }

    Element& operator[](uint32_t index)
    {
        return pointer[index];
    }

    const Element& operator[](uint32_t index) const
    {
        return pointer[index];
    }

    const Element* begin() const
    {
        return pointer;
    }

    const Element* end() const
    {
        return pointer + count;
    }

    /// Gives the block back, if there is one, and leaves the array empty.
    void Destroy()
    {
        count = 0;
        if (pointer != nullptr)
        {
            Free(pointer, size);
            pointer = nullptr;
            size = 0;
        }
        capacity = 0;
    }

private:
    static constexpr uint32_t firstCapacity = 16;

    void TakeBlock(uint32_t newCapacity)
    {
        const Allocation block = Allocate(newCapacity * static_cast<uint32_t>(sizeof(Element)));
        pointer = static_cast<Element*>(block.pointer);
        size = block.size;
        capacity = newCapacity;
    }

    void TakeOver(DynamicArray& other)
    {
        pointer = other.pointer;
        size = other.size;
        capacity = other.capacity;
        count = other.count;
        other.pointer = nullptr;
        other.size = 0;
        other.capacity = 0;
        other.count = 0;
    }

    void Grow()
    {
        Element* old = pointer;
        const uint32_t oldSize = size;
        TakeBlock(capacity != 0 ? capacity * 2 : firstCapacity);
        if (old != nullptr)
        {
            memcpy(static_cast<void*>(pointer), old, count * sizeof(Element));
            Free(old, oldSize);
        }
    }
};
} // namespace Torvane
