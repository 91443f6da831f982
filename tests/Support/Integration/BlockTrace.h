#pragma once

/// \file
/// The large blocks of memory that an Agent allocates; any thread.

#include "tests/Support/FakeImport.h"

#include <map>
#include <stdint.h>

#include <windows.h>

namespace Torvane::Testing
{
/// Follows each block of more than 1024 bytes, which the Agent takes from a heap of the OS. Smaller ones are from pools,
/// whose own chunks are seen here too: blocks are recognized by sizes that no chunk has. One object per process, constructed
/// before the Agent is started.
class BlockTrace
{
public:
    /// \param module the Agent's library, loaded.
    explicit BlockTrace(void* module)
        : allocate(module, "HeapAlloc", &Allocate)
        , free(module, "HeapFree", &Free)
    {
    }

    struct Count
    {
        uint32_t allocated; ///< so far
        uint32_t open;      ///< of them, not freed

        bool operator==(const Count& other) const
        {
            return allocated == other.allocated && open == other.open;
        }
    };

    /// How many blocks there were of a size in this range, `last` included.
    static Count CountBlocks(uint32_t first, uint32_t last)
    {
        AcquireSRWLockShared(&lock);
        Count count = {};
        for (auto size = sizes.lower_bound(first); size != sizes.upper_bound(last); ++size)
        {
            count.allocated += size->second.allocated;
            count.open += size->second.open;
        }
        ReleaseSRWLockShared(&lock);
        return count;
    }

    static Count CountBlocks(uint32_t size)
    {
        return CountBlocks(size, size);
    }

private:
    static void* WINAPI Allocate(HANDLE heap, DWORD flags, SIZE_T size)
    {
        void* block = HeapAlloc(heap, flags, size);
        AcquireSRWLockExclusive(&lock);
        blocks[block] = static_cast<uint32_t>(size);
        ++sizes[static_cast<uint32_t>(size)].allocated;
        ++sizes[static_cast<uint32_t>(size)].open;
        ReleaseSRWLockExclusive(&lock);
        return block;
    }

    static BOOL WINAPI Free(HANDLE heap, DWORD flags, void* block)
    {
        AcquireSRWLockExclusive(&lock);
        const auto found = blocks.find(block);
        if (found != blocks.end())
        {
            --sizes[found->second].open;
            blocks.erase(found);
        }
        ReleaseSRWLockExclusive(&lock);
        return HeapFree(heap, flags, block);
    }

    static inline SRWLOCK lock = SRWLOCK_INIT;
    static inline std::map<const void*, uint32_t> blocks; ///< those that are open, with their sizes
    static inline std::map<uint32_t, Count> sizes;

    ReplacedImport allocate;
    ReplacedImport free;
};

/// For failed assertions.
inline void PrintTo(const BlockTrace::Count& count, std::ostream* stream)
{
    *stream << count.allocated << " allocated, " << count.open << " open";
}
} // namespace Torvane::Testing
