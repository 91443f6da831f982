#include "bridge/Link.h"

#include "bridge/Commands.h"

#include <algorithm>
#include <deque>
#include <stdlib.h>

#include <windows.h>

#include <process.h>

namespace Torvane::Bridge
{
namespace
{
constexpr uint32_t retryInterval = 5; // milliseconds

/// The end of a time limit.
class Deadline
{
public:
    explicit Deadline(uint32_t milliseconds)
        : end(GetTickCount64() + milliseconds)
    {
    }

    DWORD Remaining() const
    {
        const ULONGLONG now = GetTickCount64();
        return now >= end ? 0 : static_cast<DWORD>(end - now);
    }

private:
    ULONGLONG end;
};

class ScopedLock
{
public:
    explicit ScopedLock(SRWLOCK& acquired)
        : lock(acquired)
    {
        AcquireSRWLockExclusive(&lock);
    }

    ~ScopedLock()
    {
        ReleaseSRWLockExclusive(&lock);
    }

private:
    SRWLOCK& lock;
};

HANDLE OpenPipe(const std::wstring& name, uint32_t milliseconds)
{
    const Deadline deadline(milliseconds);
    for (;;)
    {
        const HANDLE pipe =
            CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (pipe != INVALID_HANDLE_VALUE)
        {
            DWORD mode = PIPE_READMODE_MESSAGE | PIPE_WAIT;
            SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr);
            return pipe;
        }
        if (deadline.Remaining() == 0)
        {
            return INVALID_HANDLE_VALUE;
        }
        Sleep(retryInterval);
    }
}

/// Reads exactly `size` bytes. A read that ends within a message of the pipe succeeds too.
bool ReadExact(HANDLE pipe, uint8_t* buffer, size_t size)
{
    size_t done = 0;
    while (done < size)
    {
        DWORD count = 0;
        if (!ReadFile(pipe, buffer + done, static_cast<DWORD>(size - done), &count, nullptr) &&
            GetLastError() != ERROR_MORE_DATA)
        {
            return false;
        }
        done += count;
    }
    return true;
}

bool WriteWhole(HANDLE pipe, const std::vector<uint8_t>& bytes)
{
    size_t done = 0;
    while (done < bytes.size())
    {
        DWORD count = 0;
        if (!WriteFile(pipe, bytes.data() + done, static_cast<DWORD>(bytes.size() - done), &count, nullptr))
        {
            return false;
        }
        done += count;
    }
    return true;
}

double SecondsBetween(LARGE_INTEGER begin, LARGE_INTEGER end)
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(end.QuadPart - begin.QuadPart) / static_cast<double>(frequency.QuadPart);
}

/// Called for each new link, if set.
std::function<void(Link&)>& EveryLink()
{
    static std::function<void(Link&)> function;
    return function;
}
} // namespace

struct Link::State
{
    uint32_t hostProcessId = 0;
    LARGE_INTEGER creationTime = {};
    std::vector<Observer> observers;
    SRWLOCK observerLock = SRWLOCK_INIT;

    HANDLE agentPipe = INVALID_HANDLE_VALUE; ///< only the reading thread reads it
    HANDLE bridgePipe = INVALID_HANDLE_VALUE;
    SRWLOCK sendLock = SRWLOCK_INIT;
    HANDLE readingThread = nullptr;

    SRWLOCK inboxLock = SRWLOCK_INIT;
    CONDITION_VARIABLE inboxChanged = CONDITION_VARIABLE_INIT;
    std::deque<Message> inbox;
    bool closed = false; ///< nothing is added to the inbox any more

    double Now() const
    {
        LARGE_INTEGER now;
        QueryPerformanceCounter(&now);
        return SecondsBetween(creationTime, now);
    }

    void NotifyObservers(const Message& message)
    {
        ScopedLock lock(observerLock);
        for (const Observer& observer : observers)
        {
            observer(message);
        }
    }

    std::wstring PipeName(const wchar_t* prefix) const
    {
        return prefix + std::to_wstring(hostProcessId);
    }

    bool ReadMessage()
    {
        std::vector<uint8_t> bytes(sizeof(BlobHeader));
        if (!ReadExact(agentPipe, bytes.data(), bytes.size()))
        {
            return false;
        }
        const uint32_t size = reinterpret_cast<const BlobHeader*>(bytes.data())->size;
        bytes.resize(sizeof(BlobHeader) + size);
        if (!ReadExact(agentPipe, bytes.data() + sizeof(BlobHeader), size))
        {
            return false;
        }
        Message message(Direction::FromAgent, Now(), std::move(bytes));
        NotifyObservers(message);
        ScopedLock lock(inboxLock);
        inbox.push_back(std::move(message));
        WakeAllConditionVariable(&inboxChanged);
        return true;
    }

    void MarkClosed()
    {
        ScopedLock lock(inboxLock);
        closed = true;
        WakeAllConditionVariable(&inboxChanged);
    }

    static unsigned __stdcall ReadUntilClosed(void* context)
    {
        State& self = *static_cast<State*>(context);
        while (self.ReadMessage())
        {
        }
        self.MarkClosed();
        return 0;
    }

    /// Waits until `isDone`, called with the inbox locked, returns true. \return its last result.
    bool WaitForInbox(uint32_t milliseconds, const std::function<bool()>& isDone)
    {
        const Deadline deadline(milliseconds);
        ScopedLock lock(inboxLock);
        for (;;)
        {
            if (isDone())
            {
                return true;
            }
            const DWORD remaining = deadline.Remaining();
            if (remaining == 0)
            {
                return false;
            }
            SleepConditionVariableSRW(&inboxChanged, &inboxLock, remaining, 0);
        }
    }

    Message Take(uint32_t milliseconds, const std::function<bool(const Message&)>& isWanted)
    {
        Message taken;
        WaitForInbox(milliseconds, [&] {
            const auto found = std::find_if(inbox.begin(), inbox.end(), isWanted);
            if (found == inbox.end())
            {
                return closed;
            }
            taken = std::move(*found);
            inbox.erase(found);
            return true;
        });
        return taken;
    }
};

Link::Link(uint32_t hostProcessId)
    : state(std::make_unique<State>())
{
    state->hostProcessId = hostProcessId;
    QueryPerformanceCounter(&state->creationTime);
    if (EveryLink())
    {
        EveryLink()(*this);
    }
}

void Link::OnEveryLink(std::function<void(Link&)> function)
{
    EveryLink() = std::move(function);
}

Link::~Link()
{
    Close();
}

uint32_t Link::HostProcessId() const
{
    return state->hostProcessId;
}

void Link::Observe(Observer observer)
{
    state->observers.push_back(std::move(observer));
}

bool Link::Connect(uint32_t milliseconds)
{
    const Deadline deadline(milliseconds);
    return ConnectAgentPipe(milliseconds) && ConnectBridgePipe(deadline.Remaining());
}

bool Link::ConnectAgentPipe(uint32_t milliseconds)
{
    state->agentPipe = OpenPipe(state->PipeName(agentPipePrefix), milliseconds);
    if (state->agentPipe == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    state->readingThread = reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 0, &State::ReadUntilClosed, state.get(), 0, nullptr));
    return state->readingThread != nullptr;
}

bool Link::ConnectBridgePipe(uint32_t milliseconds)
{
    state->bridgePipe = OpenPipe(state->PipeName(bridgePipePrefix), milliseconds);
    return state->bridgePipe != INVALID_HANDLE_VALUE;
}

bool Link::ExchangeVersion(uint32_t milliseconds, const char* version)
{
    if (!SendVersion(*this, version))
    {
        return false;
    }
    const auto answer = WaitFor<VersionBlob>(milliseconds);
    return answer && answer.AnsiString(answer->version) == version;
}

bool Link::Send(const std::vector<uint8_t>& bytes)
{
    ScopedLock lock(state->sendLock);
    if (state->bridgePipe == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    if (bytes.size() >= sizeof(BlobHeader))
    {
        state->NotifyObservers(Message(Direction::ToAgent, state->Now(), bytes));
    }
    return WriteWhole(state->bridgePipe, bytes);
}

Message Link::Receive(uint32_t milliseconds)
{
    return state->Take(milliseconds, [](const Message&) { return true; });
}

Message Link::WaitForOneOf(const std::vector<BlobType>& types, uint32_t milliseconds)
{
    return state->Take(milliseconds, [&types](const Message& message) {
        return std::find(types.begin(), types.end(), message.Type()) != types.end();
    });
}

bool Link::WaitUntilClosed(uint32_t milliseconds)
{
    return state->WaitForInbox(milliseconds, [this] { return state->closed; });
}

bool Link::IsClosed() const
{
    ScopedLock lock(state->inboxLock);
    return state->closed;
}

void Link::Close()
{
    if (state->readingThread != nullptr)
    {
        // Between two reads there is nothing to cancel: try again until the thread has ended.
        do
        {
            CancelSynchronousIo(state->readingThread);
        }
        while (WaitForSingleObject(state->readingThread, retryInterval) == WAIT_TIMEOUT);
        CloseHandle(state->readingThread);
        state->readingThread = nullptr;
    }
    ScopedLock lock(state->sendLock);
    for (HANDLE* pipe : {&state->bridgePipe, &state->agentPipe})
    {
        if (*pipe != INVALID_HANDLE_VALUE)
        {
            CloseHandle(*pipe);
            *pipe = INVALID_HANDLE_VALUE;
        }
    }
}

double Link::Now() const
{
    return state->Now();
}

uint32_t HostProcessIdFromCommandLine()
{
    const std::wstring commandLine = GetCommandLineW();
    const size_t last = commandLine.find_last_not_of(L' ');
    if (last == std::wstring::npos)
    {
        return 0;
    }
    const size_t blank = commandLine.find_last_of(L' ', last);
    const size_t first = blank == std::wstring::npos ? 0 : blank + 1;
    return static_cast<uint32_t>(wcstoul(commandLine.c_str() + first, nullptr, 10));
}
} // namespace Torvane::Bridge
