// The Bridge of the fault campaigns: answers all that an Agent sends, and plays a whole reload. It never waits without a
// limit, and ends with its host.
#include "Board.h"

#include "bridge/Bridge.h"

#include <process.h>
#include <string.h>

namespace
{
using namespace Torvane;
using namespace Torvane::Bridge;

constexpr uint32_t connectLimit = 20000; // milliseconds
constexpr uint32_t replyLimit = 4000;
constexpr uint32_t pollInterval = 20;
constexpr uint32_t lateness = 700;
constexpr AddressSlot strangeHandle = 0x1F00;     ///< nobody's in a host
constexpr AddressSlot strangeAddress = 0xDEAD000; ///< nothing is there in a host

/// The process ends with its host, or when the host asks for it, whatever it waits for.
unsigned __stdcall EndWithHost(void* hostProcessId)
{
    const DWORD id = static_cast<DWORD>(reinterpret_cast<uintptr_t>(hostProcessId));
    const HANDLE host = OpenProcess(SYNCHRONIZE, FALSE, id);
    Faults::Board board(id);
    while (WaitForSingleObject(host, pollInterval) == WAIT_TIMEOUT && board->leave == 0)
    {
    }
    InterlockedExchange(&board->left, 1);
    TerminateProcess(GetCurrentProcess(), 0);
    return 0;
}

class FaultsBridge
{
public:
    explicit FaultsBridge(uint32_t hostProcessId)
        : board(hostProcessId)
        , link(hostProcessId)
    {
    }

    void Run()
    {
        link.Observe([this](const Message& message) { Note(message); });
        if (link.Connect(connectLimit) && link.ExchangeVersion(connectLimit))
        {
            InterlockedExchange(&board->entered, 1);
            SendInstallExceptionHandler(link, 0);
            if (Is("installs its handler twice"))
            {
                SendInstallExceptionHandler(link, 0);
            }
            if (EndEarly())
            {
                return;
            }
            for (;;)
            {
                const Message message = link.Receive(pollInterval);
                if (!message && link.IsClosed())
                {
                    return;
                }
                Answer(message);
            }
        }
    }

    void SayEnd()
    {
        InterlockedExchange(&board->left, 1);
    }

private:
    /// Whether this Bridge is the one of that bad company.
    bool Is(const char* behaviour) const
    {
        return strcmp(board->bridge, behaviour) == 0;
    }

    /// On the link's reading thread.
    void Note(const Message& message)
    {
        const uint32_t type = static_cast<uint32_t>(message.Type());
        if (message.From() != Direction::FromAgent || type >= Faults::countedTypes)
        {
            return;
        }
        const LONG count = InterlockedIncrement(&board->received[type]);
        if ((Is("stops reading") && message.Type() == BlobType::RegisterProcess) ||
            (Is("stops reading before the shutdown") && message.Type() == BlobType::DisableModules &&
             count == 3))
        {
            Sleep(INFINITE);
        }
    }

    /// \return whether the process is to end in the middle of what it sends.
    bool EndEarly()
    {
        std::vector<uint8_t> bytes(64, 0x3F);
        if (Is("sends garbage"))
        {
            link.Send(bytes);
        }
        if (Is("ends in a header"))
        {
            bytes.resize(4);
            return link.Send(bytes);
        }
        if (Is("ends in a message"))
        {
            bytes[0] = 200;
            bytes[1] = bytes[2] = bytes[3] = 0;
            return link.Send(bytes);
        }
        return false;
    }

    void Acknowledge(const EnableModulesBlob& modules)
    {
        if (Is("acknowledges another's modules"))
        {
            SendDecrementLatch(link, modules.latch + 0x10000, modules.modules.count);
        }
        SendDecrementLatch(link, modules.latch, modules.modules.count);
        if (Is("acknowledges twice"))
        {
            SendDecrementLatch(link, modules.latch, modules.modules.count);
        }
    }

    void AllowRestart(const RestartBlob& restart)
    {
        if (Is("allows another's restart"))
        {
            SendExitProcessForHotRestart(link, strangeHandle);
        }
        SendExitProcessForHotRestart(link, restart.event);
        if (Is("allows a restart twice"))
        {
            SendExitProcessForHotRestart(link, restart.event);
        }
    }

    void AnswerException(HandleExceptionWindowsBlob exception)
    {
        const uint32_t action = exceptions++ % 2 == 0 ? ActionSkipInstruction : ActionNopInstruction;
        SendHandleExceptionResult(link, exception, action, {});
        if (Is("answers exceptions twice"))
        {
            SendHandleExceptionResult(link, exception, action, {});
        }
        if (Is("answers another's exception"))
        {
            exception.event = strangeHandle;
            exception.action = exception.resumeRecord = strangeAddress;
            SendHandleExceptionResult(link, exception, action, {});
        }
    }

    void Answer(const Message& message)
    {
        if (!message)
        {
            return;
        }
        if (Is("answers late") && message.Type() >= BlobType::EnableModules &&
            message.Type() <= BlobType::HandleExceptionWindows)
        {
            Sleep(lateness);
        }
        switch (message.Type())
        {
        case BlobType::EnableModules:
            Acknowledge(*message.As<EnableModulesBlob>());
            break;
        case BlobType::ScheduleReload:
            SendRequestReload(link);
            break;
        case BlobType::Reload:
            Reload();
            break;
        case BlobType::HandleExceptionWindows:
            AnswerException(*message.As<HandleExceptionWindowsBlob>());
            break;
        case BlobType::ScheduleRestart:
            SendRequestRestart(link);
            break;
        case BlobType::Restart:
            AllowRestart(*message.As<RestartBlob>());
            break;
        default:
            break;
        }
    }

    Received<PatchLoadedBlob> Load(const std::wstring& path)
    {
        PatchCommand command;
        command.path = path;
        command.watchdog = true;
        command.reservations.push_back({board->reservation, 0x10000, 0, 0});
        SendLoadPatch(link, command);
        const Message reply = link.WaitForOneOf({BlobType::PatchLoaded, BlobType::LogNarrow}, replyLimit);
        const bool loaded = reply && reply.Type() == BlobType::PatchLoaded;
        return loaded ? Received<PatchLoadedBlob>(reply) : Received<PatchLoadedBlob>();
    }

    void Reload()
    {
        Load(L"C:\\there is no such patch.dll");
        if (const auto loaded = Load(board->patches[0]))
        {
            Apply(loaded->base, PatchImage(board->patches[0]));
            InterlockedIncrement(&board->reloads);
        }
        if (const auto loaded = Load(board->patches[1]))
        {
            SendUnloadPatch(link, loaded->base);
        }
        SendFinishAfterHotReload(link);
    }

    void Apply(AddressSlot base, const PatchImage& image)
    {
        const AddressSlot code = base + image.EntryPoint();
        SendSetPageProtection(link, {{code & ~AddressSlot{0xFFF}, 0x1000, PAGE_EXECUTE_READWRITE, 0}});
        SendReadMemory(link, 4, {board->memory}, 1);
        const auto read = link.WaitFor<ReadMemoryResultBlob>(replyLimit);
        if (read && read->totalSize == 4)
        {
            uint32_t value = 0;
            memcpy(&value, read.Data(read->data, 4).data(), 4);
            value *= 2;
            std::vector<uint8_t> bytes(4);
            memcpy(bytes.data(), &value, 4);
            SendWriteMemory(link, {board->memory}, bytes);
        }
        SendCopyMemory(link, 2, {code}, {code});
        SendFlushInstructionCache(link);
        SendCallEntryPoint(link, base, image.EntryPoint(), image.EntryCode(), idleEntryPoint);
        SendCallHooks(link, 10, board->hooks, board->hooks + 8);
        (void)Fence(link, replyLimit);
    }

    Faults::Board board;
    Link link;
    uint32_t exceptions = 0;
};
} // namespace

int main()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    const uint32_t host = HostProcessIdFromCommandLine();
    _beginthreadex(nullptr, 0, EndWithHost, reinterpret_cast<void*>(uintptr_t{host}), 0, nullptr);
    FaultsBridge* bridge = new FaultsBridge(host); // its reading thread can be blocked, and isn't waited for
    bridge->Run();
    bridge->SayEnd();
    TerminateProcess(GetCurrentProcess(), 0);
}
