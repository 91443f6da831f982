#include "bridge/Session.h"

#include "bridge/Commands.h"

#include <algorithm>

#include <windows.h>

#include <wchar.h>

namespace Torvane::Bridge
{
namespace
{
/// Milliseconds without a Blob after which the threads are resumed: longer than the watchdog's 500, so that it acts first.
constexpr uint32_t quietTime = 1000;
constexpr uint32_t runTime = 20; // milliseconds

constexpr uint32_t synchronizedAgentType = 1;
} // namespace

Session::Session(Link& itsLink)
    : link(itsLink)
    , host(itsLink.HostProcessId())
{
}

Session::Session(Link& itsLink, const RegisterAgentBlob& agent, const RegisterProcessBlob& process)
    : Session(itsLink)
{
    Register(agent, process);
}

Session::~Session()
{
    ResumeThreads();
    link.Serve(BlobType::EnableModules, nullptr); // the handlers are this session's
    link.Serve(BlobType::DisableModules, nullptr);
}

Result<> Session::Connect(uint32_t milliseconds)
{
    Result<> connected = link.Connect(milliseconds);
    if (connected)
    {
        connected = link.ExchangeVersion(milliseconds);
    }
    return connected ? ReceiveRegistration(milliseconds) : connected;
}

Result<> Session::ReceiveRegistration(uint32_t milliseconds)
{
    const auto agent = link.WaitFor<RegisterAgentBlob>(milliseconds);
    const auto process = link.WaitFor<RegisterProcessBlob>(milliseconds);
    if (!agent || !process)
    {
        return Failure{"the Agent's registration is missing: " + (agent ? process.Reason() : agent.Reason())};
    }
    Register(*agent, *process);
    return {};
}

void Session::Register(const RegisterAgentBlob& agent, const RegisterProcessBlob& process)
{
    isSynchronized = agent.agentType == synchronizedAgentType;
    agentImage = host.ImageAt(process.spinForever);
    threads.emplace(link.HostProcessId(), AgentThreads(process));
}

// ---- Modules ----

void Session::ServeModules(const std::function<void()>& onChange)
{
    link.Serve<EnableModulesBlob>([this, onChange](const Received<EnableModulesBlob>& enabled) {
        for (const EnabledModule& module : ModulesOf(enabled))
        {
            Disable(module); // it may have been enabled before
            modules.push_back(module);
        }
        AcknowledgeModules(link, host, enabled);
        if (onChange)
        {
            onChange();
        }
    });
    link.Serve<DisableModulesBlob>([this, onChange](const Received<DisableModulesBlob>& disabled) {
        for (const EnabledModule& module : ModulesOf(disabled))
        {
            Disable(module);
        }
        if (onChange)
        {
            onChange();
        }
    });
}

void Session::Disable(const EnabledModule& module)
{
    modules.erase(std::remove_if(modules.begin(), modules.end(),
                                 [&module](const EnabledModule& other) { return other.base == module.base; }),
                  modules.end());
}

const EnabledModule* Session::FindModule(const std::wstring& fileName) const
{
    const auto found = std::find_if(modules.begin(), modules.end(), [&](const EnabledModule& module) {
        return _wcsicmp(FileNameOf(module.path).c_str(), fileName.c_str()) == 0;
    });
    return found == modules.end() ? nullptr : &*found;
}

// ---- Threads ----

Result<> Session::SuspendThreads()
{
    if (!threads)
    {
        return Failure{"the session isn't connected"};
    }
    Result<> suspended = threads->Suspend();
    if (!suspended)
    {
        ResumeThreads();
        return Failure{"the host's threads can't be suspended: " + suspended.Reason(), suspended.Why().code};
    }
    threads->RunUntilOutside(agentImage.base, agentImage.size);
    areThreadsSuspended = true;
    ServeSuspension(true);
    return {};
}

void Session::ResumeThreads()
{
    if (areThreadsSuspended)
    {
        threads->Resume();
        areThreadsSuspended = false;
        ServeSuspension(false);
    }
}

void Session::ServeSuspension(bool isOn)
{
    Link::Handler resume;
    Link::Handler suspend;
    std::function<void()> runBriefly;
    if (isOn)
    {
        resume = [this](const Message&) {
            threads->ResumeForLoad();
        };
        // If it fails the threads run, as the next step that needs them suspended reports.
        suspend = [this](const Message&) {
            (void)threads->SuspendAfterLoad();
        };
        runBriefly = [this] {
            RunThreadsBriefly();
        };
    }
    link.Serve(BlobType::ResumeHeldThreads, resume);
    link.Serve(BlobType::SuspendHeldThreads, suspend);
    link.ServeSilence(quietTime, runBriefly);
}

void Session::RunThreadsBriefly()
{
    if (threads->Count() == 0)
    {
        return; // they run already, on the watchdog's request
    }
    threads->Resume();
    Sleep(runTime);
    (void)threads->Suspend();
}
} // namespace Torvane::Bridge
