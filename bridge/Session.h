#pragma once

/// \file
/// A Bridge's dealings with one Agent: what the host has registered and enabled, and its suspended threads. For the thread
/// that waits on the link.

#include "bridge/HostProcess.h"
#include "bridge/Link.h"
#include "bridge/Modules.h"
#include "bridge/Result.h"
#include "bridge/ThreadSuspender.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// What the functions of `Reload.h`, `Route.h`, `Exceptions.h` and `Relaunch.h` work on. It knows which of their steps the
/// host can follow at the moment: they refuse the others, which would leave both sides waiting for each other.
class Session
{
public:
    /// \param itsLink has to outlive the session.
    explicit Session(Link& itsLink);

    /// For a link that is connected, and whose registration has been received.
    Session(Link& itsLink, const RegisterAgentBlob& agent, const RegisterProcessBlob& process);

    /// Resumes the host's threads.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Connects the link, exchanges versions, and receives the registration. \param milliseconds for each of them.
    Result<> Connect(uint32_t milliseconds);

    /// The last of these steps alone.
    Result<> ReceiveRegistration(uint32_t milliseconds);

    Link& link;
    const HostProcess host;

    /// Whether the host decides when it is reloaded and restarted, by polling.
    bool IsSynchronized() const
    {
        return isSynchronized;
    }

    // Modules

    /// Keeps the modules that the host enables and disables from now on, and lets its calls continue, as
    /// `AcknowledgeModules` does.
    /// \param onChange called after each change; it may be null.
    void ServeModules(const std::function<void()>& onChange = nullptr);

    /// In the order in which they were enabled.
    const std::vector<EnabledModule>& Modules() const
    {
        return modules;
    }

    /// The enabled module with that file name, compared without case; null if there is none.
    const EnabledModule* FindModule(const std::wstring& fileName) const;

    /// The host's executable, if it is enabled; null otherwise.
    const EnabledModule* FindExecutable() const
    {
        return FindModule(FileNameOf(host.ExecutablePath()));
    }

    // Threads

    /// Suspends the host's threads: all but the Agent's own, and none of them inside the Agent. While they are suspended,
    /// the link's waits execute `ResumeHeldThreads` and `SuspendHeldThreads`, and resume the threads briefly whenever
    /// nothing has arrived for a second: some commands need locks that a suspended thread can own.
    Result<> SuspendThreads();
    void ResumeThreads();

    /// Whether they are suspended, or are resumed only until a load has ended.
    bool AreThreadsSuspended() const
    {
        return areThreadsSuspended;
    }

    /// How many threads are suspended at the moment, and where they are.
    ThreadSuspender& Threads()
    {
        return *threads;
    }

    // The reload that is in progress; for the functions of `Reload.h`

    /// Whether a thread of the host has to let in the next patch to be loaded, and so mustn't be suspended.
    bool DoesHostLetPatchIn() const
    {
        return isSynchronized && hasReloadBegun;
    }

    void NoteReload()
    {
        hasReloadBegun = true;
    }

    void NoteLoad()
    {
        hasReloadBegun = false;
    }

private:
    void Register(const RegisterAgentBlob& agent, const RegisterProcessBlob& process);
    void ServeSuspension(bool isOn);
    void RunThreadsBriefly();
    void Disable(const EnabledModule& module);

    bool isSynchronized = false;
    bool areThreadsSuspended = false;
    bool hasReloadBegun = false; ///< and no patch was loaded since
    std::vector<EnabledModule> modules;
    HostProcess::Image agentImage = {};
    std::optional<ThreadSuspender> threads;
};
} // namespace Torvane::Bridge
