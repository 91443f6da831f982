/// \file
/// The host of the benchmarks that need processes:
///
///     ProcessBenchmarks --figure=N --rounds=N [--quick]
///
/// 8: enabling modules; 9: loading patches; 11: exceptions. The Agent and the Bridge of these benchmarks stand beside
/// it. Prints a line of JSON for each value.

#include "benchmarks/Processes/Measure.h"

#include "Shared/Process/Windows/TestLibraries.h"
#include "Torvane/Agent.h"

#include <string.h>

namespace Torvane::Benchmarks
{
namespace
{
volatile LONG connectionStatus = -1;

void TVN_CALL TakeStatus(void*, TvnConnectionStatus status)
{
    InterlockedExchange(&connectionStatus, status);
}

template<typename Function>
Function Find(HMODULE library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

bool WriteWhole(const std::wstring& path, const std::vector<uint8_t>& bytes)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
    return written == bytes.size();
}

// ---- 8: enabling modules ----

/// What the Agent can't do without, for each module: map its file, and unmap it.
double MapAndUnmap(const std::vector<std::wstring>& paths)
{
    const double begin = Now();
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
    return Now() - begin;
}

bool MeasureModules(const TvnDefaultAgent& agent)
{
    constexpr uint32_t most = 500;
    TestLibraries libraries(L"benchmark");
    std::vector<std::string> names;
    std::vector<std::wstring> paths;
    std::vector<const wchar_t*> pointers;
    for (uint32_t i = 0; i < most; ++i)
    {
        names.push_back("TvnModule" + std::to_string(i) + ".dll");
        if (!libraries.Write(names.back(), {}, 0x10000) || libraries.Load(names.back()) == nullptr)
        {
            return false;
        }
        paths.push_back(libraries.PathOf(names.back()));
    }
    for (const std::wstring& path : paths)
    {
        pointers.push_back(path.c_str());
    }
    for (const uint32_t count : {1u, 10u, 50u, 100u, 250u, most})
    {
        const std::vector<std::wstring> some(paths.begin(), paths.begin() + count);
        std::vector<double> ours;
        std::vector<double> bare;
        for (uint32_t round = 0; round < Rounds(); ++round)
        {
            const double begin = Now();
            agent.TvnEnableModules(pointers.data(), count, ExactlyTheseModules, nullptr, nullptr);
            ours.push_back((Now() - begin) / count);
            bare.push_back(MapAndUnmap(some) / count);
        }
        const std::string name = std::to_string(count) + (count == 1 ? " module" : " modules");
        Report(name, "ours", ours);
        Report(name, "mapping", bare);
    }

    // The closure: one module that imports all the others.
    for (const uint32_t count : {1u, 10u, 50u})
    {
        std::vector<TestImportOf> imports;
        for (uint32_t i = 0; i < count; ++i)
        {
            imports.push_back({names[i].c_str()});
        }
        const std::string root = "TvnRoot" + std::to_string(count) + ".dll";
        if (!libraries.Write(root, imports) || libraries.Load(root) == nullptr)
        {
            return false;
        }
        std::vector<std::wstring> some(paths.begin(), paths.begin() + count);
        some.push_back(libraries.PathOf(root));
        std::vector<double> ours;
        std::vector<double> bare;
        for (uint32_t round = 0; round < Rounds(); ++round)
        {
            const double begin = Now();
            agent.TvnEnableModule(some.back().c_str(), IncludeImports, nullptr, nullptr);
            ours.push_back((Now() - begin) / (count + 1));
            bare.push_back(MapAndUnmap(some) / (count + 1));
        }
        const std::string name = "closure of " + std::to_string(count + 1);
        Report(name, "ours", ours);
        Report(name, "mapping", bare);
    }
    return true;
}

// ---- 9: loading patches ----

/// An image whose one section fills the file.
bool WriteImages()
{
    for (const uint32_t size : imageSizes)
    {
        std::vector<uint8_t> bytes = BuildTestLibrary("image.dll", {}, size);
        auto* headers = reinterpret_cast<IMAGE_NT_HEADERS32*>(
            bytes.data() + reinterpret_cast<IMAGE_DOS_HEADER*>(bytes.data())->e_lfanew);
        IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
        section->SizeOfRawData = size - section->VirtualAddress;
        bytes.resize(section->PointerToRawData + section->SizeOfRawData, 0x5A);
        if (!WriteWhole(ImagePath(size), bytes))
        {
            return false;
        }
    }
    return true;
}

/// The rival: the same loads, ordered over a bare pipe.
bool ServeLoads(BarePipe& pipe)
{
    uint32_t kind = 0;
    std::vector<uint8_t> payload;
    while (pipe.Receive(kind, payload))
    {
        HMODULE module = nullptr;
        switch (kind)
        {
        case BareLoad:
            module = LoadLibraryW(reinterpret_cast<const wchar_t*>(payload.data()));
            pipe.Send(kind, &module, sizeof(module));
            break;
        case BareFree:
            memcpy(&module, payload.data(), sizeof(module));
            FreeLibrary(module);
            pipe.Send(kind);
            break;
        default:
            pipe.Send(kind);
            break;
        }
    }
    return true;
}

// ---- 11: exceptions ----

void Fault()
{
    asm volatile("ud2"); // two bytes, which the Bridge has skipped
}

bool MeasureExceptions(BarePipe& pipe)
{
    std::vector<double> ours;
    std::vector<double> bare;
    uint32_t kind = 0;
    std::vector<uint8_t> payload;
    if (!pipe.Receive(kind, payload)) // the handler is installed
    {
        return false;
    }
    for (uint32_t round = 0; round < Rounds(); ++round)
    {
        double begin = Now();
        Fault();
        ours.push_back(Now() - begin);

        begin = Now();
        for (uint32_t trip = 0; trip < 2; ++trip)
        {
            if (!pipe.Send(BareEcho) || !pipe.Receive(kind, payload))
            {
                return false;
            }
        }
        bare.push_back(Now() - begin);
    }
    Report("skipped instruction", "ours", ours);
    Report("skipped instruction", "two bare round trips", bare);
    return true;
}

bool Measure(int figure, const TvnDefaultAgent& agent, BarePipe& pipe)
{
    switch (figure)
    {
    case 8:
        return MeasureModules(agent);
    case 9:
        return pipe.WaitForClient() && WriteImages() && pipe.Send(BareReady) && ServeLoads(pipe);
    case 11:
        return pipe.WaitForClient() && MeasureExceptions(pipe);
    default:
        return false;
    }
}

/// Prints what was measured and clears up.
void PrintResults()
{
    if (FILE* file = _wfopen(ResultsPath().c_str(), L"r"))
    {
        char line[400];
        while (fgets(line, sizeof(line), file) != nullptr)
        {
            fputs(line, stdout);
        }
        fclose(file);
    }
    DeleteFileW(ResultsPath().c_str());
    for (const uint32_t size : imageSizes)
    {
        DeleteFileW(ImagePath(size).c_str());
    }
    RemoveDirectoryW(Variable(L"TORVANE_BENCHMARK_FOLDER").c_str());
}

void PrepareEnvironment(int figure, uint32_t rounds)
{
    wchar_t temporary[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temporary);
    const std::wstring folder = temporary + (L"TorvaneBenchmark_" + std::to_wstring(GetCurrentProcessId()));
    CreateDirectoryW(folder.c_str(), nullptr);
    SetEnvironmentVariableW(L"TORVANE_BENCHMARK_FOLDER", folder.c_str());
    DeleteFileW(ResultsPath().c_str());
    SetEnvironmentVariableW(L"TORVANE_BENCHMARK_ROUNDS", std::to_wstring(rounds).c_str());
    SetEnvironmentVariableA("TORVANE_BRIDGE_SCENARIO", ("Figure" + std::to_string(figure)).c_str());
}

int Run(int figure, uint32_t rounds)
{
    PrepareEnvironment(figure, rounds);
    BarePipe pipe;
    const HMODULE library = LoadLibraryW(L"TVN_Agent_x86.dll");
    const auto startup = Find<decltype(&TvnStartupDefaultAgent)>(library, "TvnStartupDefaultAgent");
    if (startup == nullptr || !pipe.Create())
    {
        fputs("ProcessBenchmarks: the Agent or the bare pipe can't be had\n", stderr);
        return 1;
    }
    static TvnDefaultAgent agent;
    startup(&agent, nullptr, nullptr, nullptr);
    agent.TvnOnConnection(nullptr, &TakeStatus);
    while (connectionStatus == -1)
    {
        Sleep(1);
    }
    const bool done = connectionStatus == ConnectionSucceeded && Measure(figure, agent, pipe);
    Find<decltype(&TvnShutdown)>(library, "TvnShutdown")();
    PrintResults();
    return done ? 0 : 1;
}

/// The number behind an argument's name, or 0.
uint32_t NumberOf(const char* argument, const char* name)
{
    const size_t length = strlen(name);
    return strncmp(argument, name, length) == 0 ? strtoul(argument + length, nullptr, 10) : 0;
}
} // namespace
} // namespace Torvane::Benchmarks

int main(int count, char** arguments)
{
    using namespace Torvane::Benchmarks;
    uint32_t figure = 0;
    uint32_t rounds = 0;
    for (int i = 1; i < count; ++i)
    {
        figure = figure == 0 ? NumberOf(arguments[i], "--figure=") : figure;
        rounds = rounds == 0 ? NumberOf(arguments[i], "--rounds=") : rounds;
    }
    if (figure == 0 || rounds == 0)
    {
        fputs("usage: ProcessBenchmarks --figure=N --rounds=N [--quick]\n", stderr);
        return 2;
    }
    return Run(static_cast<int>(figure), rounds);
}
