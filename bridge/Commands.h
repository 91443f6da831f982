#pragma once

/// \file
/// Everything that a Bridge sends, one function for each Blob; any thread. All return what `Link::Send` returns, and none
/// waits for a reply: `Requests.h` and `Reload.h` have functions that do.

#include "Agent/Protocol/Names.h"
#include "bridge/Link.h"
#include "bridge/RemoteAddress.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// The first Blob of a connection. The Agent reports a mismatch for any other version and executes no Blob.
bool SendVersion(Link& link, const std::string& version = apiVersion);

/// A string for the host's debugger. The Agent ignores the level.
bool SendLogNarrow(Link& link, const std::string& text, BlobLogLevel level = BlobLogLevel::Info);
bool SendLogWide(Link& link, const std::wstring& text, BlobLogLevel level = BlobLogLevel::Info);

/// The content of a `LoadPatchWindows`. The Agent doesn't use the cookies; it returns them in `PatchLoaded`, as the fields that
/// are called `secondText` and `echo…` there.
struct PatchCommand
{
    std::wstring path; ///< full path of the image, as the host sees it
    std::wstring cookieText;
    uint64_t cookie38 = 0; ///< truncated to 32 bits
    uint64_t cookie50 = 0;
    uint64_t cookie58 = 0;
    uint64_t cookie60 = 0;
    uint8_t cookie68 = 0;
    std::vector<WirePageRange>
        reservations; ///< address space to release for the load; reserved again if the load fails

    /// Whether the host's threads are suspended: the Agent then doesn't involve the host, and sends
    /// `ResumeHeldThreads` if the load hangs.
    bool watchdog = false;
};

/// The reply is `PatchLoaded` or, if the image can't be loaded, a `LogNarrow` of level Error.
bool SendLoadPatch(Link& link, const PatchCommand& patch);
bool SendUnloadPatch(Link& link, RemoteAddress base);

/// Arguments of hooks. Each kind of hook uses some of them.
struct HookArguments
{
    std::string firstText;  ///< kinds 0 to 9
    uint32_t number = 0;    ///< kinds 0 and 1
    std::string secondText; ///< kinds 2 to 4
    std::string thirdText;  ///< kind 4
    std::string kind7Text;
    std::vector<std::string> textList; ///< kinds 8 and 9
};

/// Calls every entry of the table of 32-bit function pointers [first, end) that isn't null.
bool SendCallHooks(Link& link, uint32_t kind, RemoteAddress first, RemoteAddress end,
                   const HookArguments& arguments = {});

/// Reads an element at each address; an address of 0 is skipped. The reply is `ReadMemoryResult`.
bool SendReadMemory(Link& link, uint64_t elementSize, const std::vector<RemoteAddress>& addresses,
                    uint64_t cookie);

/// `data` holds the elements back to back. \return false, and sends nothing, if its size isn't a multiple of
/// the number of addresses.
bool SendWriteMemory(Link& link, const std::vector<RemoteAddress>& addresses,
                     const std::vector<uint8_t>& data);

/// Copies within the Agent's process, element by element. \return false, and sends nothing, if the two lists
/// have different lengths.
bool SendCopyMemory(Link& link, uint32_t elementSize, const std::vector<RemoteAddress>& sources,
                    const std::vector<RemoteAddress>& destinations);

bool SendSetPageProtection(Link& link, const std::vector<WirePageRange>& ranges);
bool SendFlushInstructionCache(Link& link);

/// The code bytes that `SendCallEntryPoint` writes to an entry point.
struct EntryPointCode
{
    uint8_t bytes[entryPointCodeSize];
};

/// Calls `base` + `entryPoint` as a library's entry point: its first bytes are `before` during the call, and `after` from
/// then on.
bool SendCallEntryPoint(Link& link, RemoteAddress base, uint64_t entryPoint, const EntryPointCode& before,
                        const EntryPointCode& after);

/// The reply is `Reload`: a default agent sends it at once, a synchronized agent when the host polls and agrees.
bool SendRequestReload(Link& link);

/// Ends the reload, successful or not. A host that waits in `TvnReload` continues.
bool SendFinishAfterHotReload(Link& link);

bool SendRequestRestart(Link& link);

/// \param event the one received in `Restart`.
bool SendExitProcessForHotRestart(Link& link, RemoteAddress event);

/// \param order 0 adds the handler as the last one, any other value as the first.
bool SendInstallExceptionHandler(Link& link, uint32_t order);

/// The decision about an exception; the addresses are copied from the Blob that reported it.
bool SendHandleExceptionResult(Link& link, const HandleExceptionWindowsBlob& exception, uint32_t action,
                               const ResumeRecord& resumeRecord);

/// \param latch the one received in `EnableModules`. \param times how many of these Blobs are sent.
bool SendDecrementLatch(Link& link, RemoteAddress latch, uint32_t times = 1);

/// The reply is `EchoReply`, sent after the replies to all earlier commands.
bool SendEchoRequest(Link& link, uint64_t cookie);

bool SendSynchronize(Link& link);
} // namespace Torvane::Bridge
