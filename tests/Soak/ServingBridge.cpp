#include "tests/Soak/Bridge.h"
#include "tests/Soak/Traffic.h"

#include <deque>

namespace Torvane::Soak
{
namespace
{
using namespace Torvane::Bridge;

class Server
{
public:
    Server(Link& itsLink, const Board& itsBoard)
        : link(itsLink)
        , board(itsBoard)
    {
    }

    void Take(const Message& message);

private:
    /// A request whose reply hasn't come yet.
    struct Request
    {
        bool echo;
        uint64_t token;
        std::vector<uint32_t> offsets;
        uint32_t size;
    };

    void TakeItem(ItemKind kind, Origin origin, const std::function<bool(const Item&)>& matches);
    void TakeText(ItemKind kind, const std::string& text);

    template<typename Record>
    void TakePreference(const Message& message, ItemKind kind,
                        const std::function<bool(const Record&, const Item&)>& matches);

    void SendRequests(uint32_t hash);
    void TakeEcho(const Message& message);
    void TakeMemory(const Message& message);
    void TakeModules(const std::vector<EnabledModule>& modules, uint32_t index);
    void TakeEnabled(const Received<EnableModulesBlob>& blob);
    void TakeException(const Received<HandleExceptionWindowsBlob>& blob);

    Link& link;
    const Board& board;
    std::deque<Request> requests;
    uint64_t nextToken = 1;
    uint32_t items = 0;
};

void Server::TakeItem(ItemKind kind, Origin origin, const std::function<bool(const Item&)>& matches)
{
    if (origin.thread >= workerCount)
    {
        board.Fail("corrupted: an item of thread %u", origin.thread);
        return;
    }
    const uint32_t expected = static_cast<uint32_t>(board->received[origin.thread]);
    if (origin.sequence != expected)
    {
        board.Fail("lost or reordered: item %u of thread %u instead of %u", origin.sequence, origin.thread,
                   expected);
        return;
    }
    const Item item = MakeItem(link.HostProcessId(), origin.thread, expected);
    if (item.kind != kind || !matches(item))
    {
        board.Fail("corrupted: item %u of thread %u", expected, origin.thread);
    }
    if (++items % 64 == 0)
    {
        SendRequests(item.hash);
    }
    InterlockedIncrement(&board->received[origin.thread]);
}

void Server::TakeText(ItemKind kind, const std::string& text)
{
    TakeItem(kind, OriginOf(text), [&](const Item& item) { return item.text == text; });
}

template<typename Record>
void Server::TakePreference(const Message& message, ItemKind kind,
                            const std::function<bool(const Record&, const Item&)>& matches)
{
    const auto* record = message.As<Record>();
    if (record == nullptr)
    {
        board.Fail("corrupted: a preference that is too short");
        return;
    }
    TakeItem(kind, OriginOf(record->preference), [&](const Item& item) { return matches(*record, item); });
}

/// An echo, and three pieces of the host's data.
void Server::SendRequests(uint32_t hash)
{
    const uint64_t token = nextToken++;
    Request read = {false, token, {}, 1 + hash % 2000};
    std::vector<AddressSlot> addresses;
    for (uint32_t i = 0; i < 3; ++i)
    {
        read.offsets.push_back(Mix(hash, i, 1) % (dataSize - read.size));
        addresses.push_back(board->data + read.offsets.back());
    }
    requests.push_back(read);
    requests.push_back({true, token, {}, 0});
    SendReadMemory(link, read.size, addresses, token);
    SendEchoRequest(link, token);
}

void Server::TakeEcho(const Message& message)
{
    const auto* reply = message.As<EchoReplyBlob>();
    if (reply == nullptr || requests.empty() || !requests.front().echo ||
        requests.front().token != reply->token)
    {
        board.Fail("lost or reordered: a reply to an echo request");
        return;
    }
    requests.pop_front();
}

void Server::TakeMemory(const Message& message)
{
    const Received<ReadMemoryResultBlob> reply(message);
    if (!reply || requests.empty() || requests.front().echo || requests.front().token != reply->token)
    {
        board.Fail("lost or reordered: memory");
        return;
    }
    const Request request = requests.front();
    requests.pop_front();
    const std::vector<uint8_t> data = reply.Data(reply->data, reply->totalSize);
    std::vector<uint8_t> expected;
    for (const uint32_t offset : request.offsets)
    {
        for (uint32_t i = 0; i < request.size; ++i)
        {
            expected.push_back(DataAt(link.HostProcessId(), offset + i));
        }
    }
    if (data != expected)
    {
        board.Fail("corrupted: memory");
    }
}

/// \param index 0 for enabled modules, 1 for disabled ones.
void Server::TakeModules(const std::vector<EnabledModule>& modules, uint32_t index)
{
    if (modules.empty())
    {
        board.Fail("corrupted: a list of modules");
    }
    for (const EnabledModule& module : modules)
    {
        const std::wstring name = FileNameOf(module.path);
        if (module.base == 0 || module.imageSize == 0 || name.empty())
        {
            board.Fail("corrupted: a module");
        }
        // Normalized paths have lower-case letters.
        if (_wcsnicmp(name.c_str(), L"Kept", 4) == 0)
        {
            InterlockedIncrement(&board->kept[index]);
        }
        else if (_wcsnicmp(name.c_str(), L"Passing", 7) == 0)
        {
            InterlockedIncrement(&board->passing[index]);
        }
    }
}

void Server::TakeEnabled(const Received<EnableModulesBlob>& blob)
{
    if (!blob)
    {
        board.Fail("corrupted: enabled modules");
        return;
    }
    TakeModules(ModulesOf(blob), 0);
    SendDecrementLatch(link, blob->latch, blob->modules.count);
}

/// The thread says in EBX what it wants; to resume, in ESI, EDI and EBP where.
void Server::TakeException(const Received<HandleExceptionWindowsBlob>& blob)
{
    WOW64_CONTEXT context = {};
    EXCEPTION_RECORD32 record = {};
    const std::vector<uint8_t> contextBytes = blob.Data(blob->context, sizeof(context));
    const std::vector<uint8_t> recordBytes = blob.Data(blob->record, sizeof(record));
    if (contextBytes.size() != sizeof(context) || recordBytes.size() != sizeof(record))
    {
        board.Fail("corrupted: an exception");
        return;
    }
    memcpy(&context, contextBytes.data(), sizeof(context));
    memcpy(&record, recordBytes.data(), sizeof(record));
    if (context.Eip != record.ExceptionAddress || blob->processId != link.HostProcessId() || context.Ebx > 7)
    {
        board.Fail("corrupted: an exception at 0x%lX, thread at 0x%lX", record.ExceptionAddress, context.Eip);
    }
    InterlockedIncrement(&board->exceptions);
    SendHandleExceptionResult(link, *blob, context.Ebx, {context.Esi, context.Edi, context.Ebp});
}

void Server::Take(const Message& message)
{
    switch (message.Type())
    {
    case BlobType::LogNarrow:
        if (const auto* log = message.As<LogBlob>())
        {
            TakeText(ItemKind::LogNarrow, message.AnsiString(log->text));
        }
        break;
    case BlobType::LogWide:
        if (const auto* log = message.As<LogBlob>())
        {
            TakeText(ItemKind::LogWide, Utf8(message.Utf16String(log->text)));
        }
        break;
    case BlobType::SetBoolPreferences:
        TakePreference<SetBoolPreferencesBlob>(
            message, ItemKind::Bool,
            [](const auto& record, const Item& item) { return record.value == (item.hash >> 9 & 1); });
        break;
    case BlobType::SetIntPreferences:
        TakePreference<SetIntPreferencesBlob>(message, ItemKind::Int,
                                              [](const auto& record, const Item& item) {
                                                  return record.value == static_cast<int32_t>(item.hash);
                                              });
        break;
    case BlobType::SetStringPreferences:
        TakePreference<SetStringPreferencesBlob>(message, ItemKind::String,
                                                 [&](const auto& record, const Item& item) {
                                                     return message.AnsiString(record.value) == item.text;
                                                 });
        break;
    case BlobType::SetShortcutPreferences:
        TakePreference<SetShortcutPreferencesBlob>(
            message, ItemKind::Shortcut, [](const auto& record, const Item& item) {
                return record.firstArgument == item.hash && record.secondArgument == ~item.hash;
            });
        break;
    case BlobType::EchoReply:
        TakeEcho(message);
        break;
    case BlobType::ReadMemoryResult:
        TakeMemory(message);
        break;
    case BlobType::EnableModules:
        TakeEnabled(Received<EnableModulesBlob>(message));
        break;
    case BlobType::DisableModules:
        TakeModules(ModulesOf(Received<DisableModulesBlob>(message)), 1);
        break;
    case BlobType::HandleExceptionWindows:
        TakeException(Received<HandleExceptionWindowsBlob>(message));
        break;
    default:
        break;
    }
}
} // namespace

void Serve(Link& link, const Board& board)
{
    if (board->work == BridgeWork::AnswerExceptions)
    {
        SendInstallExceptionHandler(link, 1);
        if (!Fence(link, limit))
        {
            board.Fail("the exception handler wasn't installed");
        }
        board->ready = 1;
    }
    Server server(link, board);
    board.Enter(bridgeThread, "serving");
    while (const Message message = link.Receive(INFINITE))
    {
        server.Take(message);
    }
    board.Enter(bridgeThread, "has lost its Agent");
}
} // namespace Torvane::Soak
