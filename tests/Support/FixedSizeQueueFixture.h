#pragma once

/// \file
/// What tests of the queue use: the Agent's instance, its layout in memory, elements.

#include "Shared/Container/FixedSizeQueue.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestMemorySystem.h"

#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>

namespace Torvane::Testing
{
constexpr uint32_t agentQueueCapacity = 4096;
using AgentQueue = FixedSizeQueue<Allocation, agentQueueCapacity>;

/// The layout of the queue's fields in memory.
struct QueueLayout
{
    SRWLOCK producerLock;
    SRWLOCK consumerLock;
    HANDLE producerSemaphore;
    HANDLE consumerSemaphore;
    uint64_t readCounter;
    uint64_t writeCounter;
    Allocation slots[agentQueueCapacity];
};
static_assert(sizeof(QueueLayout) == 32800);

inline QueueLayout Look(const void* queue)
{
    QueueLayout layout;
    memcpy(&layout, queue, sizeof(layout));
    return layout;
}

/// An element that differs from all others, and points to no object.
inline Allocation Numbered(uint32_t number)
{
    return {reinterpret_cast<void*>(uintptr_t{number}), ~number};
}

inline bool Is(const Allocation& element, uint32_t number)
{
    return element.pointer == Numbered(number).pointer && element.size == Numbered(number).size;
}

inline bool IsEmpty(const Allocation& element)
{
    return element.pointer == nullptr && element.size == 0;
}

inline bool PushNumber(AgentQueue* queue, uint32_t number)
{
    Allocation element = Numbered(number);
    return queue->Push(element);
}

class FixedSizeQueueFixture : public testing::Test
{
protected:
    ~FixedSizeQueueFixture() override
    {
        AgentQueue::Destroy(queue);
        EXPECT_EQ(queue, nullptr);
    }

    HANDLE Producer() const
    {
        return Look(queue).producerSemaphore;
    }

    HANDLE Consumer() const
    {
        return Look(queue).consumerSemaphore;
    }

    TestMemorySystem memory;
    RecordedLog log;
    AgentQueue* queue = AgentQueue::Create();
};
} // namespace Torvane::Testing
