#pragma once

/// \file
/// The Bridge's part of a reload as its calls of the OS alone, with the host of `ReloadRelay.h`. One thread.

#include "AgentLink.h"
#include "Reloads.h"

#include <vector>

namespace Torvane::Benchmarks
{
/// How often each call of the OS is made.
struct ReloadCalls
{
    uint32_t contextsPerThread; ///< the first one also waits until the thread is suspended
    uint32_t stacksPerThread;
    uint32_t readsPerFunction;
    uint32_t queriesPerFunction;
    uint32_t queriesPerPage;
    bool
        looksAgain; ///< for new threads, and whether a thread is in the Agent, after a load by which none was resumed
    bool isFileWritten; ///< read and written, to make its entry point idle
};

/// What the Bridge kit makes; `benchmarks/check` compares how many there are of each.
///
/// For each thread: its context once it is suspended; its context and stack to see whether it is in the Agent, and again
/// after a guarded load, and whether it is in the routed functions, and its context to be sure that it isn't. For each
/// function: its code and its target's, and their pages; the pages of its first and its last byte. For each page: whether it
/// is writable.
constexpr ReloadCalls sameCalls = {4, 2, 2, 4, 1, true, true};

/// What would do: each fact is asked for once, and the file is prepared before the reload.
constexpr ReloadCalls fewestCalls = {1, 1, 1, 0, 1, false, false};

class BareReload
{
public:
    /// \param itsBoard of the bare host. \param patchPath of the image.
    BareReload(uint32_t hostProcessId, Board& itsBoard);
    ~BareReload();
    BareReload(const BareReload&) = delete;
    BareReload& operator=(const BareReload&) = delete;

    /// From the request until the end was executed.
    void Run(const ReloadCase& reloadCase, const std::wstring& path, bool synchronized,
             const ReloadCalls& calls);

    /// Puts the functions back, and frees the patch. The host's threads don't work.
    void Undo(const ReloadCase& reloadCase);

private:
    struct Thread
    {
        uint32_t id;
        HANDLE handle;
    };

    template<typename Record>
    void Send(const Bridge::BlobWriter<Record>& blob);
    void Send(BlobType type);
    void Fence();
    void Suspend(const ReloadCalls& calls);
    bool SuspendNewThreads();
    void Inspect(uint32_t contexts, uint32_t stacks) const;
    void Resume();
    void Load(const std::wstring& path, bool guarded, const ReloadCalls& calls);
    void Route(const ReloadCase& reloadCase, const ReloadCalls& calls);
    void WriteFunctions(const ReloadCase& reloadCase, const std::vector<uint8_t>& code,
                        const ReloadCalls& calls);
    void CallEntryPoint();
    void Query(uint64_t address);

    uint32_t processId;
    HANDLE process;
    Board& board;
    RelayLink relay;
    std::vector<Thread> threads;
    uint64_t base = 0; ///< of the patch
};
} // namespace Torvane::Benchmarks
