#include "bridge/PatchFunctions.h"

#include <algorithm>
#include <string.h>

namespace Torvane::Bridge
{
namespace
{
constexpr uint32_t shortestFunction = 5; // bytes: the size of a jump

/// Beginnings of names. Of C++'s, which the compiler reserves like all that begin with two underscores or with one and a
/// capital letter, only those of the library are here.
constexpr const char* runtimePrefixes[] = {
    "_ZNSt",         "_ZNKSt",         "_ZSt",   "_ZZNSt",          "_ZZNKSt",       "_ZZSt",
    "_ZN9__gnu_cxx", "_ZNK9__gnu_cxx", "_ZNSa",  "_ZN10__cxxabiv1", "pthread_",      "_pthread_",
    "sched_",        "sem_",           "clock_", "DllMain",         "DllEntryPoint",
};

/// Functions of MinGW's thread library and start-up code that have no name of their own kind.
constexpr const char* runtimeNames[] = {
    "atexit",    "nanosleep",     "cond_print",   "cond_print_set",   "do_sema_b_wait_intern",
    "rwl_print", "rwl_print_set", "thread_print", "thread_print_set",
};

/// Functions that MinGW's C headers define inline, so that code built without optimization contains and exports them. Those
/// of printf and scanf have C++ names in a C++ program, unless it prints with Microsoft's library alone. A program that
/// includes these headers can't have others of the same name and parameters.
constexpr const char* headerFunctions[] = {
    "_Z6printfPKcz",
    "_Z7fprintfP6_iobufPKcz",
    "_Z7sprintfPcPKcz",
    "_Z8snprintfPcjPKcz",
    "_Z7vprintfPKcPc",
    "_Z8vfprintfP6_iobufPKcPc",
    "_Z8vsprintfPcPKcS_",
    "_Z9vsnprintfPcjPKcS_",
    "_Z5scanfPKcz",
    "_Z6fscanfP6_iobufPKcz",
    "_Z6sscanfPKcS0_z",
    "_Z6vscanfPKcPc",
    "_Z7vfscanfP6_iobufPKcPc",
    "_Z7vsscanfPKcS0_Pc",
    "snprintf",
    "vsnprintf",
    "vscanf",
    "vfscanf",
    "vsscanf",
    "wprintf",
    "fwprintf",
    "snwprintf",
    "vwprintf",
    "vfwprintf",
    "vsnwprintf",
    "wscanf",
    "fwscanf",
    "swscanf",
    "vwscanf",
    "vfwscanf",
    "vswscanf",
    "_scprintf",
    "_snprintf",
    "_snscanf",
    "_scwprintf",
    "_swprintf",
    "_vscwprintf",
    "_vswprintf",
    "strnlen_s",
    "wcsnlen_s",
};

bool IsReserved(const std::string& name)
{
    return name.size() > 1 && name[0] == '_' &&
           (name[1] == '_' || (name[1] >= 'A' && name[1] <= 'Y')); // _Z is any C++ name
}

using Rvas = std::vector<uint32_t>;

void Simplify(Rvas& rvas)
{
    std::sort(rvas.begin(), rvas.end());
    rvas.erase(std::unique(rvas.begin(), rvas.end()), rvas.end());
}

/// Where the functions of that name are, of the first kind that there is one of.
Rvas Find(const HostModule& module, const std::string& name)
{
    Rvas exported;
    Rvas external;
    Rvas local;
    for (const ImageFunction& function : module.exports)
    {
        if (function.name == name)
        {
            exported.push_back(function.rva);
        }
    }
    for (const ImageFunction& function : module.symbols)
    {
        if (function.name == name)
        {
            (function.isLocal ? local : external).push_back(function.rva);
        }
    }
    Rvas& found = !exported.empty() ? exported : !external.empty() ? external : local;
    Simplify(found);
    return found;
}

/// Whether the next function begins before a jump would end.
bool IsTooShort(const HostModule& module, uint32_t rva)
{
    const auto isNear = [rva](const ImageFunction& function) {
        return function.rva > rva && function.rva - rva < shortestFunction;
    };
    return std::any_of(module.exports.begin(), module.exports.end(), isNear) ||
           std::any_of(module.symbols.begin(), module.symbols.end(), isNear);
}

MatchedFunction Match(const ImageFunction& patched, const std::vector<HostModule>& modules)
{
    MatchedFunction match;
    match.name = ReadableName(patched.name);
    match.to = patched.rva;
    for (const HostModule& module : modules)
    {
        const Rvas found = Find(module, patched.name);
        if (found.empty())
        {
            continue;
        }
        if (!match.module.empty())
        {
            match.obstacle = match.module + " and " + module.name + " have functions of that name";
        }
        else if (found.size() > 1)
        {
            match.obstacle =
                std::to_string(found.size()) + " functions of " + module.name + " have that name";
        }
        else if (IsTooShort(module, found.front()))
        {
            match.obstacle = "in " + module.name + " it is shorter than the " +
                             std::to_string(shortestFunction) + " bytes of a jump";
        }
        match.module = module.name;
        match.from = module.base + found.front();
    }
    if (!match.obstacle.empty())
    {
        match.from = 0;
    }
    return match;
}
} // namespace

namespace
{
/// Two names of one function in the host are one function: of those that the patch has for both it can call only one.
void MergeAliases(std::vector<MatchedFunction>& matches)
{
    for (size_t i = 0; i < matches.size(); ++i)
    {
        const uint64_t from = matches[i].from;
        for (size_t j = i + 1; j < matches.size() && from != 0;)
        {
            if (matches[j].from != from)
            {
                ++j;
            }
            else if (matches[j].to == matches[i].to)
            {
                matches.erase(matches.begin() + static_cast<ptrdiff_t>(j));
            }
            else
            {
                const std::string same = "in " + matches[i].module + " it has the same code as ";
                matches[j].obstacle = same + matches[i].name;
                matches[i].obstacle = same + matches[j].name;
                matches[i].from = matches[j].from = 0;
            }
        }
    }
}
} // namespace

bool IsNameOfRuntime(const std::string& name)
{
    const auto isPrefix = [&name](const char* prefix) {
        return name.compare(0, strlen(prefix), prefix) == 0;
    };
    const auto isIn = [&name](const auto& names) {
        return std::find(std::begin(names), std::end(names), name) != std::end(names);
    };
    return IsReserved(name) ||
           std::any_of(std::begin(runtimePrefixes), std::end(runtimePrefixes), isPrefix) ||
           isIn(runtimeNames) || isIn(headerFunctions);
}

std::vector<MatchedFunction> MatchFunctions(const std::vector<ImageFunction>& patchExports,
                                            const std::vector<HostModule>& modules)
{
    std::vector<MatchedFunction> matches;
    for (const ImageFunction& patched : patchExports)
    {
        if (!IsNameOfRuntime(patched.name))
        {
            matches.push_back(Match(patched, modules));
        }
    }
    MergeAliases(matches);
    return matches;
}
} // namespace Torvane::Bridge
