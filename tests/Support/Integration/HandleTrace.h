#pragma once

/// \file
/// The Agent's calls with handles of the OS; for the thread that runs the test.

#include "tests/Support/FakeImport.h"

#include <memory>
#include <string>
#include <vector>

namespace Torvane::Testing
{
/// The events of the hot reload, which are the first ones that an Agent creates.
inline const std::string shouldCompileAndReload = "event 1";
inline const std::string hotReload = "event 2";
inline const std::string loadPatch = "event 3";
inline const std::string loadPatchReceived = "event 4";
inline const std::string waitForPatchLoad = "event 5";
inline const std::string hotReloadFinished = "event 6";

/// Follows each handle that the Agent creates. One object per process, constructed before the Agent is started.
///
/// A handle is called by its kind and its number among those of that kind, in the order of their creation by
/// whatever thread: "event 1", "semaphore 1", "mutex 1", "mapping 1", "view 1", "file 1", "pipe 1", "thread 1",
/// "opened thread 1", "process 1", "first thread 1" for that of a process.
class HandleTrace
{
public:
    /// \param module the Agent's library, loaded.
    explicit HandleTrace(void* module);

    /// The calls of the thread that asks, as in "create event 1", "set event 1", "wait for thread 2", "close pipe 1".
    std::vector<std::string> OwnCalls() const;

    /// Adds a call that isn't about a handle, of this thread.
    static void Note(const std::string& call);

    /// Whether both calls were made, by any threads, the first of this one before the first of the other.
    bool IsBefore(const std::string& call, const std::string& other) const;

    /// How often any thread has made this call.
    size_t Count(const std::string& call) const;

    /// What any thread has created and is still open.
    std::vector<std::string> OpenHandles() const;

    /// How many calls closed something that wasn't open.
    size_t FailedCloses() const;

private:
    std::vector<std::unique_ptr<ReplacedImport>> replaced;
};
} // namespace Torvane::Testing
