#include "bridge/Link.h"

#include "bridge/Commands.h"
#include "bridge/Deadline.h"
#include "bridge/Inbox.h"
#include "bridge/ScopedLock.h"
#include "bridge/Text.h"

#include <algorithm>
#include <stdlib.h>

#include <windows.h>

#include <process.h>

namespace Torvane::Bridge
{
namespace
{
constexpr uint32_t retryInterval = 5; // milliseconds

Result<HANDLE> OpenPipe(const std::wstring& name, uint32_t milliseconds)
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
            return OSFailure("the pipe " + Utf8(name) + " can't be opened");
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

    Inbox inbox;

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
        inbox.Add(std::move(message));
        return true;
    }

    static unsigned __stdcall ReadUntilClosed(void* context)
    {
        State& self = *static_cast<State*>(context);
        while (self.ReadMessage())
        {
        }
        self.inbox.Close();
        return 0;
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

Result<> Link::Connect(uint32_t milliseconds)
{
    const Deadline deadline(milliseconds);
    Result<> first = ConnectAgentPipe(milliseconds);
    return first ? ConnectBridgePipe(deadline.Remaining()) : first;
}

Result<> Link::ConnectAgentPipe(uint32_t milliseconds)
{
    const Result<HANDLE> pipe = OpenPipe(state->PipeName(agentPipePrefix), milliseconds);
    if (!pipe)
    {
        return pipe.Why();
    }
    state->agentPipe = *pipe;
    state->readingThread = reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 0, &State::ReadUntilClosed, state.get(), 0, nullptr));
    return state->readingThread != nullptr ? Result<>() : OSFailure("the reading thread can't be started");
}

Result<> Link::ConnectBridgePipe(uint32_t milliseconds)
{
    const Result<HANDLE> pipe = OpenPipe(state->PipeName(bridgePipePrefix), milliseconds);
    if (!pipe)
    {
        return pipe.Why();
    }
    state->bridgePipe = *pipe;
    return {};
}

Result<> Link::ExchangeVersion(uint32_t milliseconds, const char* version)
{
    if (!SendVersion(*this, version))
    {
        return ClosedPipe();
    }
    const auto reply = WaitFor<VersionBlob>(milliseconds);
    if (!reply)
    {
        return Failure{"the Agent's version is missing: " + reply.Reason()};
    }
    const std::string other = reply.AnsiString(reply->version);
    if (other != version)
    {
        return Failure{"the Agent has version " + other + ", this Bridge has " + version};
    }
    return {};
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

void Link::Serve(BlobType type, Handler handler)
{
    state->inbox.Serve(type, std::move(handler), false);
}

void Link::ServeInRun(BlobType type, Handler handler)
{
    state->inbox.Serve(type, std::move(handler), true);
}

void Link::ServeSilence(uint32_t milliseconds, std::function<void()> handler)
{
    state->inbox.ServeSilence(milliseconds, std::move(handler));
}

void Link::Run()
{
    while (!RunFor(INFINITE))
    {
    }
}

bool Link::RunFor(uint32_t milliseconds)
{
    state->inbox.ServeAll(milliseconds);
    return IsClosed();
}

Message Link::Receive(uint32_t milliseconds)
{
    return state->inbox.TakeUnserved(milliseconds);
}

Message Link::WaitForOneOf(const std::vector<BlobType>& types, uint32_t milliseconds)
{
    return WaitForMatch(
        [&types](const Message& message) {
            return std::find(types.begin(), types.end(), message.Type()) != types.end();
        },
        milliseconds);
}

Message Link::WaitForMatch(const std::function<bool(const Message&)>& isWanted, uint32_t milliseconds)
{
    return state->inbox.Take(milliseconds, isWanted);
}

bool Link::WaitUntilClosed(uint32_t milliseconds)
{
    (void)state->inbox.Take(milliseconds, [](const Message&) { return false; });
    return IsClosed();
}

bool Link::IsClosed() const
{
    return state->inbox.IsClosed();
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

Failure ClosedPipe()
{
    return {"the bridge pipe is closed", 0};
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
