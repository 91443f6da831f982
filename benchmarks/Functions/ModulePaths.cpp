// Benchmark 7: the set of the module paths that a walk has visited, and sets of other libraries with the same paths.
#include "Functions.h"

#include "Shared/Process/Windows/ModulePathSet.h"

#include "../Support/Random.h"

#include <absl/container/flat_hash_set.h>

#include <algorithm>
#include <unordered_set>
#include <vector>

namespace Torvane
{
namespace
{
using Paths = std::vector<std::wstring>;

struct Ours
{
    static constexpr const char* name = "ours";
    using Set = ModulePathSet;

    static bool Insert(Set& set, const std::wstring& path)
    {
        OwnedWideString text = CopyWide(path.c_str());
        return set.Insert(text);
    }

    static bool Contains(const Set& set, const std::wstring& path)
    {
        return set.Contains(path.data(), static_cast<uint32_t>(path.size()));
    }
};

template<typename StandardSet>
struct Baseline
{
    using Set = StandardSet;

    static bool Insert(Set& set, const std::wstring& path)
    {
        return set.insert(path).second;
    }

    static bool Contains(const Set& set, const std::wstring& path)
    {
        return set.find(path) != set.end();
    }
};

struct Unordered : Baseline<std::unordered_set<std::wstring>>
{
    static constexpr const char* name = "unordered_set";
};

struct Flat : Baseline<absl::flat_hash_set<std::wstring>>
{
    static constexpr const char* name = "flat_hash_set";
};

/// Paths of libraries that differ in their folders and in the numbers of their names. Always the same ones.
Paths MakePaths(size_t count)
{
    static constexpr const wchar_t* folders[] = {
        L"C:\\Windows\\System32\\",
        L"C:\\Windows\\WinSxS\\x86_microsoft.windows.common-controls_6595b64144ccf1df_6.0.19041.1110_none\\",
        L"C:\\Program Files (x86)\\Some Game\\Binaries\\Win32\\",
        L"C:\\Program Files (x86)\\Common Files\\Vendor\\Shared\\14.0\\",
        L"D:\\Projects\\Engine\\Intermediate\\Build\\Win32\\Development\\",
        L"C:\\Users\\Developer\\AppData\\Local\\Temp\\Patches\\"};
    static constexpr const wchar_t* names[] = {L"api-ms-win-core-", L"Render", L"Physics.", L"msvcp140_",
                                               L"libAnimation",     L"d3d11",  L"Editor-",  L"Plugin"};
    Benchmarks::Random random;
    Paths paths;
    for (size_t i = 0; i < count; ++i)
    {
        const wchar_t* folder = folders[random.Below(std::size(folders))];
        const wchar_t* name = names[random.Below(std::size(names))];
        paths.push_back(folder + (name + std::to_wstring(i)) + L".dll");
    }
    return paths;
}

/// Copies of the same paths in another order.
Paths Shuffle(const Paths& paths)
{
    Paths shuffled = paths;
    Benchmarks::Random random(88675123);
    for (size_t i = shuffled.size(); i > 1; --i)
    {
        std::swap(shuffled[i - 1], shuffled[random.Below(static_cast<uint32_t>(i))]);
    }
    return shuffled;
}

/// What a path costs in the whole life of a set: it is copied, inserted and freed with the set.
template<typename Side>
void InsertPaths(benchmark::State& state, const Paths& paths)
{
    for (auto _ : state)
    {
        typename Side::Set set;
        for (const std::wstring& path : paths)
        {
            if (!Side::Insert(set, path))
            {
                state.SkipWithError("a new path was in the set");
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(paths.size()));
}

template<typename Side>
void LookUpPaths(benchmark::State& state, const Paths& paths, const Paths& wanted, bool areHeld)
{
    typename Side::Set set;
    for (const std::wstring& path : paths)
    {
        Side::Insert(set, path);
    }
    for (auto _ : state)
    {
        size_t found = 0;
        for (const std::wstring& path : wanted)
        {
            found += Side::Contains(set, path) ? 1 : 0;
        }
        if (found != (areHeld ? wanted.size() : 0))
        {
            state.SkipWithError("wrong answers");
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(wanted.size()));
}

template<typename Add>
void ForEachSide(const std::string& name, int64_t iterations, Add add)
{
    const auto addSide = [&](auto side) {
        using Side = decltype(side);
        AddBenchmark("7|" + name + "|" + Side::name, 1, iterations,
                     [=](benchmark::State& state) { add(side, state); });
    };
    addSide(Ours{});
    addSide(Unordered{});
    addSide(Flat{});
}

void AddPaths(size_t count, double operations)
{
    const Paths all = MakePaths(count * 2);
    const auto middle = all.begin() + static_cast<ptrdiff_t>(count);
    const Paths paths(all.begin(), middle);
    const Paths hits = Shuffle(paths);
    const Paths misses = Shuffle({middle, all.end()});
    const std::string name = std::to_string(count) + " paths, ";
    const auto iterations = static_cast<int64_t>(operations / static_cast<double>(count));
    ForEachSide(name + "insert", iterations,
                [=](auto side, benchmark::State& state) { InsertPaths<decltype(side)>(state, paths); });
    ForEachSide(name + "hit", iterations, [=](auto side, benchmark::State& state) {
        LookUpPaths<decltype(side)>(state, paths, hits, true);
    });
    ForEachSide(name + "miss", iterations, [=](auto side, benchmark::State& state) {
        LookUpPaths<decltype(side)>(state, paths, misses, false);
    });
}
} // namespace

void AddModulePaths(double scale)
{
    for (const size_t count : {16, 256, 4096, 100000})
    {
        AddPaths(count, 400000 * scale);
    }
}
} // namespace Torvane
