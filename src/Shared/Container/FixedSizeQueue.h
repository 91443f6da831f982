#pragma once

/// \file
/// A bounded queue for any number of producers and consumers.

#include "Shared/Concurrency/Windows/Semaphore.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Memory/MemorySystem.h"

#include <new>
#include <stdint.h>
#include <utility>
#include <windows.h>

namespace Torvane
{
/// First in, first out. Two semaphores alone decide whether there is room or something to take; producers and consumers
/// each have a lock of their own, held for the copy of one slot. A push and a pop allocate nothing.
template<typename Element, uint32_t Capacity>
class FixedSizeQueue
{
    static_assert((Capacity & (Capacity - 1)) == 0, "slots are found by masking");

public:
    /// A queue in a block of the memory system. A semaphore that can't be created panics.
    static FixedSizeQueue* Create()
    {
        return new (Allocate(sizeof(FixedSizeQueue)).pointer) FixedSizeQueue;
    }

    /// Closes the semaphores and frees the block. Elements that are still queued are dropped as they are.
    static void Destroy(FixedSizeQueue*& queue)
    {
        CloseSemaphore(queue->producerSemaphore);
        CloseSemaphore(queue->consumerSemaphore);
        Free(queue, sizeof(FixedSizeQueue));
        queue = nullptr;
    }

    /// Moves the element in, and leaves the caller's empty. Waits without a limit while the queue is full.
    /// \return false after an Error line. If the wait failed, the element stays with the caller.
    bool Push(Element& element)
    {
        if (WaitForSemaphore(producerSemaphore).error != nullptr)
        {
            LogError(TVN_HERE, "Cannot wait for producer semaphore in fixed-size queue");
            return false;
        }
        AcquireSRWLockExclusive(&producerLock);
        slots[writeCounter & (Capacity - 1)] = std::exchange(element, Element{});
        ++writeCounter;
        ReleaseSRWLockExclusive(&producerLock);
        if (SignalSemaphore(consumerSemaphore).error != nullptr)
        {
            LogError(TVN_HERE, "Cannot signal consumer semaphore in fixed-size queue");
            return false;
        }
        return true;
    }

    /// Moves the oldest element out. Waits without a limit while the queue is empty.
    /// \return false after an Error line, which the caller treats as the end.
    bool Pop(Element& element)
    {
        if (WaitForSemaphore(consumerSemaphore).error != nullptr)
        {
            LogError(TVN_HERE, "Cannot wait for consumer semaphore in fixed-size queue");
            return false;
        }
        AcquireSRWLockExclusive(&consumerLock);
        element = std::exchange(slots[readCounter & (Capacity - 1)], Element{});
        ++readCounter;
        ReleaseSRWLockExclusive(&consumerLock);
        if (SignalSemaphore(producerSemaphore).error != nullptr)
        {
            LogError(TVN_HERE, "Cannot signal producer semaphore in fixed-size queue");
            return false;
        }
        return true;
    }

private:
    FixedSizeQueue()
        : producerSemaphore(MakeSemaphore(Capacity, "Queue producer"))
        , consumerSemaphore(MakeSemaphore(0, "Queue consumer"))
    {
        InitializeSRWLock(&producerLock);
        InitializeSRWLock(&consumerLock);
    }

    static HANDLE MakeSemaphore(uint32_t initialCount, const char* name)
    {
        return Expect(CreateSemaphoreObject(static_cast<int32_t>(initialCount), Capacity, name),
                      "Cannot create semaphore for FixedSizeQueue");
    }

    static void CloseSemaphore(HANDLE& semaphore)
    {
        CloseHandle(semaphore);
        semaphore = INVALID_HANDLE_VALUE;
    }

    SRWLOCK producerLock;
    SRWLOCK consumerLock;
    HANDLE producerSemaphore; ///< counts free slots
    HANDLE consumerSemaphore; ///< counts filled slots
    uint64_t readCounter = 0;
    uint64_t writeCounter = 0;
    Element slots[Capacity] = {};
};
static_assert(sizeof(FixedSizeQueue<Allocation, 4096>) == 32800);
} // namespace Torvane
