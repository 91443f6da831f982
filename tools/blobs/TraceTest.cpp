#include "tests/Support/Trace.h"
#include "tests/Support/WrittenRecording.h"
#include "tools/blobs/Exports.h"
#include "tools/blobs/Files.h"

#include "gtest/gtest.h"

#include <nlohmann/json.hpp>

#include <map>
#include <math.h>

using namespace Torvane;
using namespace Torvane::Blobs;
using namespace Torvane::Testing;

namespace
{
using Strings = std::vector<std::string>;

Strings FaultsOf(const TestRecording& recording)
{
    return TraceRules::FaultsOf(MakeTrace(recording.Get(), Filter()));
}

Recording Example(const std::string& name)
{
    Recording recording;
    std::string text;
    std::string reason;
    EXPECT_TRUE(ReadFile(BLOBS_EXAMPLES "/" + name, text, reason) && ParseRecording(text, recording, reason))
        << reason;
    return recording;
}

/// The spans of a trace, each after the name of its thread: "latches: latch 0x0051EDC4".
Strings SpansIn(const nlohmann::json& trace)
{
    std::map<uint64_t, std::string> threads;
    Strings spans;
    for (const auto& event : trace["traceEvents"])
    {
        if (event["name"] == "thread_name")
        {
            threads[event["tid"]] = event["args"]["name"];
        }
        else if (event["ph"] == "X" && event["cat"] == "operation")
        {
            spans.push_back(threads[event["tid"]] + ": " + event["name"].get<std::string>());
        }
    }
    return spans;
}
} // namespace

TEST(Trace, HasASpanForEachOperationAndAnInstantForEachBlob)
{
    const auto trace = nlohmann::json::parse(MakeTrace(ReloadRecording().Get(), Filter()));
    std::map<std::string, size_t> phases;
    std::map<std::string, std::string> threads;
    for (const auto& event : trace["traceEvents"])
    {
        // Arrows between Blobs and the slices that hold them have a test of their own.
        if (event.value("cat", "") != "exchange")
        {
            ++phases[event["ph"]];
        }
        if (event["name"] == "thread_name")
        {
            threads[event["tid"].dump()] = event["args"]["name"];
        }
        EXPECT_EQ(1234, event["pid"]);
    }
    EXPECT_EQ((std::map<std::string, size_t>{{"M", 9}, {"X", 8}, {"i", 12}}), phases);
    EXPECT_EQ("from the Agent (sender thread)", threads["11"]);
    EXPECT_EQ("to the Agent (receiver thread)", threads["12"]);
    EXPECT_EQ("ms", trace["displayTimeUnit"]);
}

TEST(Trace, HasAnArrowFromEachQuestionToItsAnswer)
{
    const auto trace = nlohmann::json::parse(MakeTrace(ReloadRecording().Get(), Filter()));
    Strings events;
    for (const auto& event : trace["traceEvents"])
    {
        if (event.value("cat", "") == "exchange")
        {
            const std::string phase = event["ph"];
            const std::string end =
                phase == "X" ? event["dur"].dump() : event["id"].dump() + event.value("bp", "");
            events.push_back(event["ts"].dump() + " " + event["tid"].dump() + " " + phase + " " +
                             event["name"].get<std::string>() + " " + end);
        }
    }
    EXPECT_EQ(Strings({
                  "4000 12 X RequestReload 1",
                  "4000 12 s answer 4",
                  "5000 11 X Reload 1",
                  "5000 11 f answer 4e",
                  "6000 12 X LoadPatchWindows 1",
                  "6000 12 s answer 6",
                  "7000 11 X LogNarrow 1",
                  "7000 11 f answer 6e",
                  "8000 12 X LoadPatchWindows 1",
                  "8000 12 s answer 8",
                  "9000 11 X PatchLoaded 1",
                  "9000 11 f answer 8e",
                  "10000 12 X ReadMemory 1",
                  "10000 12 s answer 10",
                  "11000 11 X ReadMemoryResult 1",
                  "11000 11 f answer 10e",
              }),
              events);
}

TEST(Trace, HasNoArrowWithoutBothEnds)
{
    Filter filter;
    filter.isFromAgentWanted = false;
    EXPECT_EQ(std::string::npos, MakeTrace(ReloadRecording().Get(), filter).find("exchange"));
    EXPECT_EQ(std::string::npos,
              MakeTrace(TestRecording().To(MakeEchoRequest(1)).Get(), Filter()).find("exchange"));
    // Times can go back between the threads that take them.
    Recording reversed =
        TestRecording().To(MakeEchoRequest(1)).From(MakeNumberBlob(BlobType::EchoReply, 1)).Get();
    std::swap(reversed.blobs[0].time, reversed.blobs[1].time);
    EXPECT_EQ(std::string::npos, MakeTrace(reversed, Filter()).find("exchange"));
}

TEST(Trace, CountsMicrosecondsAndNamesOutcomes)
{
    const auto trace = nlohmann::json::parse(MakeTrace(ReloadRecording().Get(), Filter()));
    bool isFound = false;
    for (const auto& event : trace["traceEvents"])
    {
        if (event["name"] == "load 2.dll")
        {
            isFound = true;
            EXPECT_EQ("X", event["ph"]);
            EXPECT_EQ(8000u, event["ts"].get<uint64_t>());
            EXPECT_EQ(1000u, event["dur"].get<uint64_t>());
            EXPECT_EQ("loaded at 0x72340000", event["args"]["outcome"]);
            EXPECT_EQ(8, event["args"]["firstBlob"]);
        }
    }
    EXPECT_TRUE(isFound);
}

TEST(Trace, HoldsWhatPassesTheFilter)
{
    Filter filter;
    std::string unknown;
    filter.AddTypes("PatchLoaded", unknown);
    const auto trace = nlohmann::json::parse(MakeTrace(ReloadRecording().Get(), filter));
    std::vector<std::string> names;
    for (const auto& event : trace["traceEvents"])
    {
        if (event["ph"] != "M")
        {
            names.push_back(event["name"]);
        }
    }
    EXPECT_EQ(Strings({"load 2.dll", "install", "PatchLoaded"}), names);
}

TEST(Trace, FollowsTheRulesOfItsFormat)
{
    EXPECT_EQ(Strings(), FaultsOf(TestRecording()));
    EXPECT_EQ(Strings(), FaultsOf(ReloadRecording()));

    TestRecording overlapping;
    overlapping.To(MakeEchoRequest(1)).To(MakeReadMemory({1}, 1)).To(MakeEchoRequest(2), 77);
    overlapping.From(MakeNumberBlob(BlobType::EchoReply, 1)).From(MakeException(21, 0x100));
    overlapping.From(MakeReadMemoryResult({0, 0, 0, 0}, 1)).From(MakeException(21, 0x104));
    EXPECT_EQ(Strings(), FaultsOf(overlapping));
}

TEST(Trace, IsInOrderWhereTheRecordingGoesBack)
{
    Recording recording = ReloadRecording().Get();
    recording.blobs[3].time = 0.0035004;
    recording.blobs[4].time = 0.0035003;
    recording.blobs[8].time = 0.001;
    EXPECT_EQ(Strings(), TraceRules::FaultsOf(MakeTrace(recording, Filter())));
}

TEST(Trace, KeepsThreadsApartWhateverTheirIds)
{
    // Two tracks with the same id, and one with an id of the range for tracks without a thread.
    TestRecording recording;
    recording.From(MakeRegisterProcess(1234)).From(MakeException(11, 0x100));
    for (const uint32_t id : {1000000000u, 1000000001u, 1000000002u, 1000000003u, 1000000004u})
    {
        recording.From(MakeException(id, id)).To(MakeEchoRequest(id));
    }
    EXPECT_EQ(Strings(), FaultsOf(recording));
}

TEST(Trace, HasEachBlobOfARecordedReloadAtItsTime)
{
    const Recording recording = Example("reload.jsonl");
    const std::string text = MakeTrace(recording, Filter());
    EXPECT_EQ(Strings(), TraceRules::FaultsOf(text));
    std::map<uint64_t, uint64_t> times;
    const auto trace = nlohmann::json::parse(text);
    for (const auto& event : trace["traceEvents"])
    {
        if (event["ph"] == "i")
        {
            times[event["args"]["blob"]] = event["ts"];
        }
    }
    EXPECT_EQ(52u, times.size());
    for (const RecordedBlob& blob : recording.blobs)
    {
        EXPECT_EQ(llround(blob.time * 1e6), static_cast<long long>(times[blob.number])) << blob.number;
    }
}

TEST(Trace, HasTheOperationsOfARecordedReload)
{
    EXPECT_EQ(Strings({
                  "latches: latch 0x0051EDC4",
                  "reload: reload 1",
                  "reload: consent",
                  "reload: compile",
                  "reload: load 1.dll",
                  "reload: install",
                  "requests: read memory 0x00000001",
                  "requests: echo 0x48454C4450415453",
                  "requests: echo 0x4F42455945442121",
                  "reload: reload 2",
                  "reload: consent",
                  "reload: compile",
                  "reload: load 2.dll",
                  "reload: refused",
                  "reload: reload 3",
                  "reload: consent",
                  "reload: compile",
                  "reload: load 3.dll",
                  "reload: install",
                  "requests: read memory 0x00000001",
                  "requests: echo 0x48454C4450415453",
                  "requests: echo 0x4F42455945442121",
              }),
              SpansIn(nlohmann::json::parse(MakeTrace(Example("reload.jsonl"), Filter()))));
}

TEST(Trace, HasTheOperationsOfRecordedExceptions)
{
    const std::string text = MakeTrace(Example("crash.jsonl"), Filter());
    EXPECT_EQ(Strings(), TraceRules::FaultsOf(text));
    EXPECT_EQ(Strings({
                  "exceptions of thread 252: exception 0xC0000094 (EXCEPTION_INT_DIVIDE_BY_ZERO)",
                  "exceptions of thread 252: exception 0xC0000005 (EXCEPTION_ACCESS_VIOLATION)",
                  "exceptions of thread 252: exception 0xC0000005 (EXCEPTION_ACCESS_VIOLATION)",
              }),
              SpansIn(nlohmann::json::parse(text)));
}

TEST(TraceRules, FindWhatIsWrong)
{
    const std::string names = R"({"ph":"M","name":"process_name","pid":1,"tid":0,"args":{"name":"p"}},)"
                              R"({"ph":"M","name":"thread_name","pid":1,"tid":2,"args":{"name":"t"}})";
    const auto faultsOf = [&names](const std::string& events) {
        return TraceRules::FaultsOf("{\"traceEvents\":[" + names + events + "]}").size();
    };
    EXPECT_EQ(0u, faultsOf(""));
    EXPECT_EQ(0u, faultsOf(R"(,{"ph":"X","name":"a","pid":1,"tid":2,"ts":1,"dur":9})"
                           R"(,{"ph":"X","name":"b","pid":1,"tid":2,"ts":2,"dur":8})"
                           R"(,{"ph":"i","name":"c","pid":1,"tid":2,"ts":2,"s":"t"})"
                           R"(,{"ph":"B","name":"d","pid":1,"tid":2,"ts":3})"
                           R"(,{"ph":"E","pid":1,"tid":2,"ts":3})"));
    for (const char* events : {
             R"(,{"ph":"X","name":"a","pid":1,"tid":2,"ts":1})",
             R"(,{"ph":"X","name":"a","pid":1,"tid":2,"ts":-1,"dur":1})",
             R"(,{"ph":"X","name":"a","pid":1,"tid":2,"dur":1})",
             R"(,{"ph":"X","name":"","pid":1,"tid":2,"ts":1,"dur":1})",
             R"(,{"ph":"X","name":"a","pid":1,"tid":3,"ts":1,"dur":1})",
             R"(,{"ph":"X","name":"a","pid":2,"tid":2,"ts":1,"dur":1})",
             R"(,{"ph":"X","name":"a","pid":1,"tid":2,"ts":1,"dur":9})"
             R"(,{"ph":"X","name":"b","pid":1,"tid":2,"ts":2,"dur":9})",
             R"(,{"ph":"X","name":"a","pid":1,"tid":2,"ts":2,"dur":1})"
             R"(,{"ph":"X","name":"b","pid":1,"tid":2,"ts":1,"dur":1})",
             R"(,{"ph":"i","name":"c","pid":1,"tid":2,"ts":2})",
             R"(,{"ph":"i","name":"c","pid":1,"tid":2,"ts":2,"s":"x"})",
             R"(,{"ph":"i","name":"c","pid":1,"tid":2,"ts":2,"s":"t","args":[]})",
             R"(,{"ph":"B","name":"d","pid":1,"tid":2,"ts":3})",
             R"(,{"ph":"E","pid":1,"tid":2,"ts":3})",
             R"(,{"ph":"Z","name":"e","pid":1,"tid":2,"ts":3})",
             R"(,{"ph":"M","name":"thread_name","pid":1,"tid":3,"args":{}})",
             R"(,{"ph":"M","name":"thread_name","pid":1,"tid":2,"args":{"name":"t"}})",
             R"(,{"ph":"M","name":"colour","pid":1,"tid":2,"args":{"name":"t"}})",
             R"(,{"name":"a","pid":1,"tid":2,"ts":1,"dur":1})",
             ",1",
         })
    {
        EXPECT_EQ(1u, faultsOf(events)) << events;
    }
    const std::string slices = R"(,{"ph":"X","name":"a","pid":1,"tid":2,"ts":1,"dur":9})";
    const std::string start = R"(,{"ph":"s","name":"a","cat":"c","id":1,"pid":1,"tid":2,"ts":2})";
    const std::string finish = R"(,{"ph":"f","bp":"e","name":"a","cat":"c","id":1,"pid":1,"tid":2,"ts":3})";
    EXPECT_EQ(0u, faultsOf(slices + start + finish));
    EXPECT_EQ(1u, faultsOf(slices + start));
    EXPECT_EQ(1u, faultsOf(slices + finish));
    EXPECT_EQ(1u, faultsOf(slices + start + finish + finish));
    EXPECT_EQ(2u, faultsOf(start + finish)); // neither is within a slice
    EXPECT_EQ(1u,
              faultsOf(slices + start + R"(,{"ph":"f","name":"a","cat":"c","id":1,"pid":1,"tid":2,"ts":3})"));
    for (const char* trace : {"", "[]", "{}", R"({"traceEvents":{}})", R"({"traceEvents":[]}})",
                              R"({"traceEvents":[],"displayTimeUnit":"s"})"})
    {
        EXPECT_EQ(1u, TraceRules::FaultsOf(trace).size()) << trace;
    }
}
