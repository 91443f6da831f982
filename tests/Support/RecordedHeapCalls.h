#pragma once

/// \file
/// Keeps the calls that product code makes to the OS's heaps, and makes them.

#include "tests/Support/FakeImport.h"

#include <stdint.h>

#include <string>
#include <vector>

namespace Torvane::Testing
{
struct HeapCall
{
    std::string function;
    HANDLE heap;
    DWORD flags; ///< or options
    SIZE_T size; ///< the initial size of a new heap
    SIZE_T maximumSize;
    void* pointer; ///< what was given or freed
};

/// The runtime's own calls, and with them the test's allocations, aren't among them. One thread at a time calls heaps
/// meanwhile.
class RecordedHeapCalls
{
public:
    const std::vector<HeapCall>& GetCalls() const
    {
        return calls;
    }

    std::vector<HeapCall> GetCalls(const char* function) const
    {
        std::vector<HeapCall> found;
        for (const HeapCall& call : calls)
        {
            if (call.function == function)
            {
                found.push_back(call);
            }
        }
        return found;
    }

    void Clear()
    {
        calls.clear();
    }

private:
    struct Create
    {
        std::vector<HeapCall>& calls;

        HANDLE operator()(decltype(&HeapCreate) real, DWORD options, SIZE_T initial, SIZE_T maximum) const
        {
            const HANDLE heap = real(options, initial, maximum);
            calls.push_back({"HeapCreate", heap, options, initial, maximum, nullptr});
            return heap;
        }
    };

    struct Allocate
    {
        std::vector<HeapCall>& calls;

        LPVOID operator()(decltype(&HeapAlloc) real, HANDLE heap, DWORD flags, SIZE_T size) const
        {
            void* pointer = real(heap, flags, size);
            calls.push_back({"HeapAlloc", heap, flags, size, 0, pointer});
            return pointer;
        }
    };

    struct Free
    {
        std::vector<HeapCall>& calls;

        BOOL operator()(decltype(&HeapFree) real, HANDLE heap, DWORD flags, LPVOID pointer) const
        {
            calls.push_back({"HeapFree", heap, flags, 0, 0, pointer});
            return real(heap, flags, pointer);
        }
    };

    struct Destroy
    {
        std::vector<HeapCall>& calls;

        BOOL operator()(decltype(&HeapDestroy) real, HANDLE heap) const
        {
            calls.push_back({"HeapDestroy", heap, 0, 0, 0, nullptr});
            return real(heap);
        }
    };

    std::vector<HeapCall> calls;
    FakeImport<Create> create{"HeapCreate", Create{calls}};
    FakeImport<Allocate> allocate{"HeapAlloc", Allocate{calls}};
    FakeImport<Free> free{"HeapFree", Free{calls}};
    FakeImport<Destroy> destroy{"HeapDestroy", Destroy{calls}};
};
} // namespace Torvane::Testing
