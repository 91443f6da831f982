#pragma once

/// \file
/// The modules of a host in which a watching Bridge looks for functions and hooks; for the thread that waits on the
/// session's link.

#include "bridge/PatchFunctions.h"
#include "bridge/Session.h"

#include <map>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// The host's enabled modules without those of the OS, with their names as they were in the file when it was first read.
class PatchTargets
{
public:
    explicit PatchTargets(const Session& itsSession)
        : session(itsSession)
    {
    }

    /// Reads the files of modules that were enabled since the last call.
    /// \return what is wrong with the file of a module, as sentences.
    std::vector<std::string> Update();

    /// Of the last `Update`.
    const std::vector<HostModule>& Modules() const
    {
        return modules;
    }

    /// The tables of hooks that modules export by that name: the addresses of the first and of the null pointer after the
    /// last entry, as far as the entries are code of the host.
    std::vector<std::pair<RemoteAddress, RemoteAddress>> HookTables(const std::string& name) const;

private:
    struct Target
    {
        HostModule module;
        std::map<std::string, uint32_t> hooks; ///< RVA by name
    };

    Target Read(const EnabledModule& module, std::string& fault) const;

    const Session& session;
    std::map<std::wstring, Target> targets; ///< by path and base
    std::vector<HostModule> modules;
    std::vector<std::wstring> keys; ///< of `modules`
};

/// Exports of a host.
constexpr char beforeReloadHooksName[] = "beforeReloadHooks";
constexpr char afterReloadHooksName[] = "afterReloadHooks";
} // namespace Torvane::Bridge
