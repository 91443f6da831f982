// Benchmark 8: enabling modules, with a Bridge that acknowledges them at once.
#include "HostBenchmarks.h"
#include "tests/Support/TestLibraries.h"

#include "../Support/Count.h"
#include "../Support/Stopwatch.h"

#include <functional>

namespace Torvane::Benchmarks
{
namespace
{
using Paths = std::vector<std::wstring>;

/// The least that the Agent has to do for each module: map its file, and unmap it.
void MapAndUnmap(const Paths& paths)
{
    for (const std::wstring& path : paths)
    {
        const HANDLE file =
            CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
        const void* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
        UnmapViewOfFile(view);
        CloseHandle(mapping);
        CloseHandle(file);
    }
}

/// Adds the time for each module of `enable` and of mapping the same files.
void Compare(Board& board, const std::string& name, const Paths& paths, const std::function<void()>& enable)
{
    for (uint32_t round = 0; round < board->rounds; ++round)
    {
        board.Add(name, "ours", Measure(enable) / static_cast<double>(paths.size()));
        board.Add(name, "mapping", Measure([&] { MapAndUnmap(paths); }) / static_cast<double>(paths.size()));
    }
}

void WriteAndLoad(Testing::TestLibraries& libraries, const std::string& name,
                  const std::vector<Testing::LibraryImport>& imports, uint32_t imageSize)
{
    if (!libraries.Write(name, imports, imageSize) || libraries.Load(name) == nullptr)
    {
        Fail("A module can't be loaded");
    }
}
} // namespace

void MeasureModules(Board& board, TvnDefaultAgent& agent)
{
    const uint32_t most = board.IsQuick() ? 50 : 500;
    Testing::TestLibraries libraries(L"benchmark");
    std::vector<std::string> names;
    Paths all;
    std::vector<const wchar_t*> pointers;
    for (uint32_t i = 0; i < most; ++i)
    {
        names.push_back("TvnModule" + std::to_string(i) + ".dll");
        WriteAndLoad(libraries, names.back(), {}, 0x10000);
        all.push_back(libraries.PathOf(names.back()));
    }
    for (const std::wstring& path : all)
    {
        pointers.push_back(path.c_str());
    }
    for (const uint32_t count : {1u, 10u, 50u, 100u, 250u, 500u})
    {
        if (count > most)
        {
            break;
        }
        Compare(board, Count(count, "module"), Paths(all.begin(), all.begin() + count), [&] {
            agent.TvnEnableModules(pointers.data(), count, ExactlyTheseModules, nullptr, nullptr);
        });
    }

    // The closure: one module that imports all the others.
    for (const uint32_t count : {1u, 10u, 50u, 250u, 500u})
    {
        if (count > most)
        {
            break;
        }
        std::vector<Testing::LibraryImport> imports;
        for (uint32_t i = 0; i < count; ++i)
        {
            imports.push_back({names[i].c_str()});
        }
        const std::string root = "TvnRoot" + std::to_string(count) + ".dll";
        WriteAndLoad(libraries, root, imports, 0x20000); // with room for all their names
        Paths some(all.begin(), all.begin() + count);
        some.push_back(libraries.PathOf(root));
        Compare(board, "closure of " + std::to_string(count + 1), some,
                [&] { agent.TvnEnableModule(some.back().c_str(), IncludeImports, nullptr, nullptr); });
    }
}
} // namespace Torvane::Benchmarks
