#pragma once

/// \file
/// Everything that a Bridge sends, one function for each Blob; any thread. All return what `Link::Send` returns.
/// Nothing here waits for an answer: see `Link::Expect`. Addresses are those of the Agent's process.

#include "bridge/Link.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// First Blob of all. With another text the Agent reports a mismatch and stops listening.
bool SendVersion(Link& link, const std::string& version = apiVersion);

/// Text for the debugger of the host. The Agent doesn't look at the level.
bool SendLogNarrow(Link& link, const std::string& text, BlobLogLevel level = BlobLogLevel::Info);
bool SendLogWide(Link& link, const std::wstring& text, BlobLogLevel level = BlobLogLevel::Info);

/// What a `LoadPatchWindows` says. The echoed values come back in `PatchLoaded` and mean nothing to the Agent.
struct PatchCommand
{
    std::wstring path;       ///< full path of the image, as the host sees it
    std::wstring secondText; ///< echoed
    uint64_t echo38 = 0;     ///< comes back cut to 32 bits
    uint64_t echo50 = 0;
    uint64_t echo58 = 0;
    uint64_t echo60 = 0;
    uint8_t echo68 = 0;
    std::vector<WirePageRange>
        reservations; ///< address space to give up for the load; taken again if it fails

    /// The host's threads are held: don't ask the host, and ask us for `ResumeHeldThreads` if the load hangs.
    bool watchdog = false;
};

/// Answered by `PatchLoaded`, or, if the image can't be loaded, by a `LogNarrow` of level Error.
bool SendLoadPatch(Link& link, const PatchCommand& order);
bool SendUnloadPatch(Link& link, AddressSlot base);

/// Arguments of hooks; a kind uses some of them.
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
bool SendCallHooks(Link& link, uint32_t kind, AddressSlot first, AddressSlot end,
                   const HookArguments& arguments = {});

/// Reads an element at each address; an address of 0 is passed over. Answered by `ReadMemoryResult`.
bool SendReadMemory(Link& link, uint64_t elementSize, const std::vector<AddressSlot>& addresses,
                    uint64_t token);

/// `data` holds the elements back to back. \return false, and sends nothing, if its size isn't a multiple of
/// the number of addresses.
bool SendWriteMemory(Link& link, const std::vector<AddressSlot>& addresses, const std::vector<uint8_t>& data);

/// Copies within the Agent's process, element by element. \return false, and sends nothing, if the two lists
/// have different lengths.
bool SendCopyMemory(Link& link, uint32_t elementSize, const std::vector<AddressSlot>& sources,
                    const std::vector<AddressSlot>& destinations);

bool SendSetPageProtection(Link& link, const std::vector<WirePageRange>& ranges);
bool SendFlushInstructionCache(Link& link);

/// Six bytes of code for `SendCallEntryPoint`.
struct EntryPointCode
{
    uint8_t bytes[entryPointCodeSize];
};

/// Calls `base` + `entryPoint` as a library's entry point, with `before` in place of its first bytes for the
/// time of the call and `after` from then on.
bool SendCallEntryPoint(Link& link, AddressSlot base, uint64_t entryPoint, const EntryPointCode& before,
                        const EntryPointCode& after);

/// Answered by `Reload`: at once by a default agent, when the host polls and agrees by a synchronized one.
bool SendRequestReload(Link& link);

/// The reload is over, successful or not. A host that waits in `TvnReload` goes on.
bool SendFinishAfterHotReload(Link& link);

bool SendRequestRestart(Link& link);

/// \param event as it came in `Restart`.
bool SendExitProcessForHotRestart(Link& link, AddressSlot event);

/// \param order 0 puts the handler last, anything else first.
bool SendInstallExceptionHandler(Link& link, uint32_t order);

/// The decision on an exception; the addresses are taken from the Blob that reported it.
bool SendHandleExceptionResult(Link& link, const HandleExceptionWindowsBlob& exception, uint32_t action,
                               const ResumeRecord& resumeRecord);

/// \param latch as it came in `EnableModules`. \param times how many of these Blobs are sent.
bool SendDecrementLatch(Link& link, AddressSlot latch, uint32_t times = 1);

/// Answered by `EchoReply` behind everything that was ordered before.
bool SendEchoRequest(Link& link, uint64_t token);

bool SendSynchronize(Link& link);

/// Sends an `EchoRequest` and waits for its reply, so that all Blobs sent before have been obeyed. Replies of
/// other tokens that stand in the inbox are taken out of it. \return false after the limit.
bool WaitUntilExecuted(Link& link, uint32_t milliseconds);
} // namespace Torvane::Bridge
