#pragma once

/// \file
/// An array that grows by doubling; one thread at a time.

#include "Shared/Memory/MemorySystem.h"

#include <stdint.h>
#include <string.h>
#include <type_traits>
#include <utility>

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
        : capacity(initialCapacity)
    {
        const Allocation block = Allocate(capacity * static_cast<uint32_t>(sizeof(Element)));
        pointer = static_cast<Element*>(block.pointer);
        size = block.size;
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

    /// \param element may be one of this array's own.
    void Append(const Element& element)
    {
        if (count < capacity)
        {
            pointer[count++] = element;
            return;
        }
        DynamicArray larger(capacity != 0 ? capacity * 2 : firstCapacity);
        if (count != 0)
        {
            memcpy(static_cast<void*>(larger.pointer), pointer, count * sizeof(Element));
        }
        larger.pointer[count] = element; // before the old block is freed
        larger.count = count + 1;
        *this = std::move(larger);
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

    /// Frees the block, if there is one, and leaves the array empty.
    void Destroy()
    {
        if (pointer != nullptr)
        {
            Free(pointer, size);
        }
        pointer = nullptr;
        size = 0;
        capacity = 0;
        count = 0;
    }

private:
    static constexpr uint32_t firstCapacity = 16;

    void TakeOver(DynamicArray& other)
    {
        pointer = std::exchange(other.pointer, nullptr);
        size = std::exchange(other.size, 0);
        capacity = std::exchange(other.capacity, 0);
        count = std::exchange(other.count, 0);
    }
};
} // namespace Torvane
