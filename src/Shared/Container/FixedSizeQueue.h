#pragma once

/// \file
/// A bounded queue for any number of producers and consumers.

#include "Shared/Concurrency/Windows/Semaphore.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Memory/MemorySystem.h"

#include <stdint.h>
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
        FixedSizeQueue* queue = static_cast<FixedSizeQueue*>(Allocate(sizeof(FixedSizeQueue)).pointer);
        queue->Construct();
        return queue;
    }

    /// Closes the semaphores and frees the block. Elements that are still there aren't looked at.
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
        Move(slots[writeCounter & (Capacity - 1)], element);
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
        Move(element, slots[readCounter & (Capacity - 1)]);
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
    void Construct()
    {
        producerSemaphore = Expect(CreateSemaphoreObject(Capacity, Capacity, "Queue producer"),
                                   "Cannot create semaphore for FixedSizeQueue");
        consumerSemaphore = Expect(CreateSemaphoreObject(0, Capacity, "Queue consumer"),
                                   "Cannot create semaphore for FixedSizeQueue");
        readCounter = 0;
        writeCounter = 0;
        for (Element& slot : slots)
        {
            slot = Element{};
        }
        InitializeSRWLock(&producerLock);
        InitializeSRWLock(&consumerLock);
    }

    static void Move(Element& to, Element& from)
    {
        to = from;
        from = Element{};
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
    uint64_t readCounter;
    uint64_t writeCounter;
    Element slots[Capacity];
};
static_assert(sizeof(FixedSizeQueue<Allocation, 4096>) == 32800);
} // namespace Torvane
