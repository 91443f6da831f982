#include "bridge/Modules.h"

#include "bridge/Commands.h"

#include <algorithm>
#include <string.h>

namespace Torvane::Bridge
{
namespace
{
constexpr uint32_t mostFurtherModules = 4096; ///< that a call can have found beside those that it reports

template<typename Record>
std::vector<EnabledModule> ReadModules(const Received<Record>& blob)
{
    const std::vector<WireModuleIdentity> identities = blob.template List<WireModuleIdentity>(blob->modules);
    const std::vector<ExecutableIdentity> executables =
        blob.template List<ExecutableIdentity>(blob->executables);
    if (identities.size() != executables.size())
    {
        return {};
    }
    std::vector<EnabledModule> modules;
    for (size_t i = 0; i < identities.size(); ++i)
    {
        const InlineWideText& path = identities[i].path;
        const size_t capacity = sizeof(path.text) / sizeof(path.text[0]);
        EnabledModule module;
        module.path.assign(path.text, path.text + std::min<size_t>(path.length, capacity));
        module.base = identities[i].base;
        module.imageSize = identities[i].imageSize;
        module.executable = executables[i];
        modules.push_back(module);
    }
    return modules;
}
} // namespace

std::vector<EnabledModule> ModulesOf(const Received<EnableModulesBlob>& blob)
{
    if (!blob)
    {
        return {};
    }
    std::vector<EnabledModule> modules = ReadModules(blob);
    const std::vector<uint64_t> counts = blob.List<uint64_t>(blob->pageRangeCounts);
    const std::vector<WirePageRange> ranges = blob.List<WirePageRange>(blob->pageRanges);
    if (counts.size() != modules.size())
    {
        return {};
    }
    size_t next = 0;
    for (size_t i = 0; i < modules.size(); ++i)
    {
        if (counts[i] > ranges.size() - next)
        {
            return {};
        }
        const size_t end = next + static_cast<size_t>(counts[i]);
        modules[i].pages.assign(ranges.begin() + static_cast<ptrdiff_t>(next),
                                ranges.begin() + static_cast<ptrdiff_t>(end));
        next = end;
    }
    return next == ranges.size() ? modules : std::vector<EnabledModule>();
}

std::vector<EnabledModule> ModulesOf(const Received<DisableModulesBlob>& blob)
{
    return blob ? ReadModules(blob) : std::vector<EnabledModule>();
}

uint32_t AcknowledgeModules(Link& link, const HostProcess& host, const Received<EnableModulesBlob>& enabled)
{
    uint32_t count = enabled->modules.count;
    const std::vector<uint8_t> bytes = host.Read(enabled->latch, sizeof(count));
    uint32_t remaining = 0;
    if (!bytes.empty())
    {
        memcpy(&remaining, bytes.data(), sizeof(remaining));
    }
    if (remaining >= count && remaining - count <= mostFurtherModules)
    {
        count = remaining;
    }
    return SendDecrementLatch(link, enabled->latch, count) ? count : 0;
}

std::wstring FileNameOf(const std::wstring& path)
{
    return path.substr(path.find_last_of(L'\\') + 1);
}
} // namespace Torvane::Bridge
