// Benchmark 3, the host's part: threads that queue messages, through the Agent and through another asynchronous logger.
#include "Bursts.h"
#include "HostBenchmarks.h"

#include "../Support/Count.h"
#include "../Support/Stopwatch.h"

#include <memory>
#include <process.h>
#include <spdlog/async_logger.h>
#include <spdlog/details/thread_pool.h>
#include <spdlog/sinks/base_sink.h>

namespace Torvane::Benchmarks
{
namespace
{
constexpr uint32_t threadCounts[] = {1, 2, 4, 8};

Pipe baselinePipe;

/// Each message goes into a pipe to the same process as the Agent's.
class PipeSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex>
{
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        spdlog::memory_buf_t text;
        formatter_->format(message, text);
        baselinePipe.Write(text.data(), static_cast<uint32_t>(text.size()));
    }

    void flush_() override
    {
    }
};

struct Baseline
{
    std::shared_ptr<spdlog::details::thread_pool> pool =
        std::make_shared<spdlog::details::thread_pool>(burstSize, 1);
    std::shared_ptr<spdlog::async_logger> logger = std::make_shared<spdlog::async_logger>(
        "benchmark", std::make_shared<PipeSink>(), pool, spdlog::async_overflow_policy::block);
};

/// One burst of one side: every thread sends its share.
struct Burst
{
    const std::function<void()>& send;
    uint32_t share;
    HANDLE start;
};

unsigned __stdcall SendShare(void* context)
{
    const Burst& burst = *static_cast<const Burst*>(context);
    WaitForSingleObject(burst.start, INFINITE);
    for (uint32_t i = 0; i < burst.share; ++i)
    {
        burst.send();
    }
    return 0;
}

struct Times
{
    double sent;
    double drained;
};

Times RunBurst(uint32_t threads, const std::function<void()>& send, HANDLE drained)
{
    Burst burst = {send, burstSize / threads, CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    HANDLE handles[8] = {};
    for (uint32_t i = 0; i < threads; ++i)
    {
        handles[i] = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, SendShare, &burst, 0, nullptr));
    }
    const double begin = Now();
    SetEvent(burst.start);
    WaitForMultipleObjects(threads, handles, TRUE, INFINITE);
    const double sent = Now() - begin;
    if (drained != nullptr)
    {
        WaitForSingleObject(drained, INFINITE);
    }
    const double end = Now() - begin;
    for (uint32_t i = 0; i < threads; ++i)
    {
        CloseHandle(handles[i]);
    }
    CloseHandle(burst.start);
    return {sent / burstSize, end / burstSize};
}

uint32_t CountBursts(Board& board)
{
    return static_cast<uint32_t>(board->rounds * (sizeof(threadCounts) / sizeof(*threadCounts)));
}
} // namespace

void PrepareBursts(Board& board, TvnDefaultAgent&)
{
    board->bursts = CountBursts(board);
    baselinePipe.Create(baselinePipeName, GetCurrentProcessId());
}

void SendBursts(Board& board, TvnDefaultAgent& agent)
{
    baselinePipe.Accept();
    auto baseline = std::make_unique<Baseline>();
    baseline->logger->set_pattern("%v");
    const HANDLE oursDrained = OpenDrained(L"Ours", GetCurrentProcessId());
    const HANDLE baselineDrained = OpenDrained(L"Baseline", GetCurrentProcessId());
    const HANDLE room = CreateSemaphoreW(nullptr, 1 << 30, 1 << 30, nullptr);
    const HANDLE filled = CreateSemaphoreW(nullptr, 0, 1 << 30, nullptr);

    const std::function<void()> sendOurs = [&] {
        agent.TvnLogMessage(L"The level has been loaded, 1312 objects, 21 of them new");
    };
    const std::function<void()> sendBaseline = [&] {
        baseline->logger->log(spdlog::level::info, "The level has been loaded, 1312 objects, 21 of them new");
    };
    const std::function<void()> callSemaphores = [&] {
        WaitForSingleObject(room, INFINITE);
        ReleaseSemaphore(filled, 1, nullptr);
    };
    for (uint32_t round = 0; round < board->rounds; ++round)
    {
        for (uint32_t threads : threadCounts)
        {
            const std::string name = Count(threads, "thread");
            const Times ours = RunBurst(threads, sendOurs, oursDrained);
            const Times theirs = RunBurst(threads, sendBaseline, baselineDrained);
            const Times semaphores = RunBurst(threads, callSemaphores, nullptr);
            board.Add(name + ", a call", "ours", ours.sent);
            board.Add(name + ", a call", "spdlog", theirs.sent);
            board.Add(name + ", a call", "two semaphore calls", semaphores.sent);
            board.Add(name + ", until received", "ours", ours.drained);
            board.Add(name + ", until received", "spdlog", theirs.drained);
        }
    }
    baseline.reset();
}
} // namespace Torvane::Benchmarks
