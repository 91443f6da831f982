// Benchmark 4: a log record on its way to the file.
#include "Functions.h"

#include "Shared/Foundation/BoundedFormat.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Foundation/Windows/Clock.h"
#include "Shared/Foundation/Windows/Log.h"

#include <memory>
#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <string>
#include <windows.h>

namespace Torvane
{
namespace
{
constexpr const char* message = "PatchLoaded";

std::wstring MakePath(const wchar_t* name)
{
    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    return std::wstring(folder) + L"Torvane benchmark " + std::to_wstring(GetCurrentProcessId()) + name;
}

HANDLE CreateTemporaryFile(const wchar_t* name)
{
    return CreateFileW(MakePath(name).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                       CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}

void Ours(benchmark::State& state)
{
    uint32_t count = 0;
    for (auto _ : state)
    {
        LogInfo(0, TVN_HERE, "Sending %hs, %u bytes, request %u", message, 128U, ++count);
    }
    state.SetItemsProcessed(state.iterations());
}

HANDLE bareFile;

/// The bytes of a record as ours are, made once.
std::string MakeRecord()
{
    char record[256];
    const int length =
        FormatBounded(record, sizeof(record), "\r\n%9.2f | %hs | %43s | Sending %hs, %u bytes, request %u",
                      1.25, "INF", "LogRecord.cpp(40)", message, 128U, 1234U);
    return std::string(record, static_cast<size_t>(length));
}

void BareWrite(benchmark::State& state)
{
    const std::string record = MakeRecord();
    for (auto _ : state)
    {
        DWORD written = 0;
        WriteFile(bareFile, record.data(), static_cast<DWORD>(record.size()), &written, nullptr);
    }
    state.SetItemsProcessed(state.iterations());
}

std::unique_ptr<spdlog::logger> spdlogLogger;

void Spdlog(benchmark::State& state)
{
    uint32_t count = 0;
    for (auto _ : state)
    {
        spdlogLogger->log(spdlog::source_loc{__FILE__, __LINE__, __func__}, spdlog::level::info,
                          "Sending {}, {} bytes, request {}", message, 128U, ++count);
    }
    state.SetItemsProcessed(state.iterations());
}

void StartupSpdlog()
{
    // `RemoveLogRecord` deletes it.
    const std::wstring wide = MakePath(L" spdlog.log");
    const std::string path(wide.begin(), wide.end());
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true);
    spdlogLogger = std::make_unique<spdlog::logger>("benchmark", std::move(sink));
    spdlogLogger->set_pattern("%H:%M:%S.%e | %l | %43s(%#) | %v");
    spdlogLogger->flush_on(spdlog::level::info);
}
} // namespace

void AddLogRecord(double scale)
{
    SetTimeOrigin();
    SetDebugOutputLevelMask(0);
    StartupLog(CreateTemporaryFile(L" ours.log"));
    bareFile = CreateTemporaryFile(L" bare.log");
    StartupSpdlog();
    for (int threads = 1; threads <= 8; threads *= 2)
    {
        const std::string name = "4|" + Count(static_cast<uint32_t>(threads), "thread") + "|";
        const int64_t iterations = static_cast<int64_t>(20000 * scale / (threads == 1 ? 1 : 2));
        AddBenchmark(name + "ours", threads, iterations, Ours);
        AddBenchmark(name + "bare WriteFile", threads, iterations, BareWrite);
        AddBenchmark(name + "spdlog", threads, iterations, Spdlog);
    }
}

void RemoveLogRecord()
{
    spdlogLogger.reset();
    DeleteFileW(MakePath(L" spdlog.log").c_str());
}
} // namespace Torvane
