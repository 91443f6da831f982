#include "Relay.h"

#include "ReloadRelay.h"

#include "../Support/Pipe.h"

#include <process.h>
#include <string.h>
#include <windows.h>

namespace Torvane::Benchmarks
{
namespace
{
Pipe in;
Pipe out;
Pipe pingPong;
uint8_t* memory;
uint32_t memorySize;
HANDLE heap;
HANDLE answered;

struct Message
{
    void* bytes;
    uint32_t size;
    void (*free)(void* bytes);
};

void Keep(void*)
{
}

void FreeBlock(void* block)
{
    HeapFree(heap, 0, block);
}

/// Two semaphores and a lock, as the queue to the Agent's sender.
class HandOver
{
public:
    void Create()
    {
        room = CreateSemaphoreW(nullptr, capacity, capacity, nullptr);
        filled = CreateSemaphoreW(nullptr, 0, capacity, nullptr);
        InitializeSRWLock(&lock);
    }

    void Push(const Message& message)
    {
        WaitForSingleObject(room, INFINITE);
        AcquireSRWLockExclusive(&lock);
        slots[written++ % capacity] = message;
        ReleaseSRWLockExclusive(&lock);
        ReleaseSemaphore(filled, 1, nullptr);
    }

    Message Pop()
    {
        WaitForSingleObject(filled, INFINITE);
        AcquireSRWLockExclusive(&lock);
        const Message message = slots[read++ % capacity];
        ReleaseSRWLockExclusive(&lock);
        ReleaseSemaphore(room, 1, nullptr);
        return message;
    }

private:
    static constexpr LONG capacity = 4096;
    HANDLE room;
    HANDLE filled;
    SRWLOCK lock;
    uint32_t written = 0;
    uint32_t read = 0;
    Message slots[capacity];
};
HandOver handOver;

/// The memory itself is the message, the header in its first bytes.
void PushMemory(uint32_t size)
{
    RelayHeader* header = reinterpret_cast<RelayHeader*>(memory);
    header->size = size - static_cast<uint32_t>(sizeof(RelayHeader));
    handOver.Push({memory, size, Keep});
}

void PushCopy(uint32_t size)
{
    void* block = HeapAlloc(heap, 0, size);
    memcpy(block, memory, size);
    static_cast<RelayHeader*>(block)->size = size - static_cast<uint32_t>(sizeof(RelayHeader));
    handOver.Push({block, size, FreeBlock});
}

void Execute(const RelayHeader& header)
{
    if (header.command == RelayCommand::Take && header.size <= memorySize)
    {
        in.Read(memory, header.size);
        return;
    }
    if (header.command == RelayCommand::TakeFresh && header.size <= memorySize)
    {
        void* block = HeapAlloc(heap, 0, header.size);
        in.Read(block, header.size);
        memcpy(memory, block, header.size);
        HeapFree(heap, 0, block);
        return;
    }
    if (header.command == RelayCommand::Answer)
    {
        SetEvent(answered);
        return;
    }
    void* payload = malloc(header.size);
    in.Read(payload, header.size);
    switch (header.command)
    {
    case RelayCommand::Give:
        PushMemory(*static_cast<uint32_t*>(payload));
        break;
    case RelayCommand::GiveFresh:
        PushCopy(*static_cast<uint32_t*>(payload));
        break;
    case RelayCommand::Load:
    {
        const HMODULE module = LoadLibraryW(static_cast<wchar_t*>(payload));
        PushReply(&module, sizeof(module));
        break;
    }
    case RelayCommand::Free:
        FreeLibrary(*static_cast<HMODULE*>(payload));
        PushReply(nullptr, 0);
        break;
    case RelayCommand::Echo:
        PushReply(payload, header.size - 8);
        break;
    default:
        ExecuteBlob(static_cast<BlobType>(static_cast<uint32_t>(header.command) -
                                          static_cast<uint32_t>(RelayCommand::Blob)),
                    payload);
        break;
    }
    free(payload);
}

unsigned __stdcall Receive(void*)
{
    in.Accept();
    RelayHeader header = {};
    while (in.Read(&header, sizeof(header)))
    {
        Execute(header);
    }
    return 0;
}

unsigned __stdcall Send(void*)
{
    out.Accept();
    for (;;)
    {
        const Message message = handOver.Pop();
        out.Write(message.bytes, message.size);
        message.free(message.bytes);
    }
}

/// Whole messages on one thread: no less than this is possible.
unsigned __stdcall PlayPingPong(void*)
{
    pingPong.Accept();
    char bytes[sizeof(RelayHeader) + echoRequestSize];
    while (pingPong.Read(bytes, sizeof(bytes)))
    {
        pingPong.Write(bytes, sizeof(RelayHeader) + echoReplySize);
    }
    return 0;
}

uint32_t Start(unsigned(__stdcall* body)(void*))
{
    unsigned id = 0;
    CloseHandle(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, body, nullptr, 0, &id)));
    return id;
}
} // namespace

std::array<uint32_t, 3> StartRelay(uint8_t* data, uint32_t dataSize)
{
    memory = data;
    memorySize = dataSize;
    heap = HeapCreate(0, 0x8000000, 0);
    answered = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    handOver.Create();
    in.Create(relayInName, GetCurrentProcessId());
    out.Create(relayOutName, GetCurrentProcessId());
    pingPong.Create(pingPongName, GetCurrentProcessId());
    return {Start(Receive), Start(Send), Start(PlayPingPong)};
}

void PushReply(const void* payload, uint32_t payloadSize)
{
    const uint32_t size = static_cast<uint32_t>(sizeof(RelayHeader)) + payloadSize;
    uint8_t* bytes = static_cast<uint8_t*>(malloc(size));
    const RelayHeader header = {payloadSize, RelayCommand::Echo};
    memcpy(bytes, &header, sizeof(header));
    memcpy(bytes + sizeof(header), payload, payloadSize);
    handOver.Push({bytes, size, free});
}

void AskRelay()
{
    PushReply(nullptr, 0);
    AwaitRelay();
}

void AwaitRelay()
{
    WaitForSingleObject(answered, INFINITE);
}
} // namespace Torvane::Benchmarks
