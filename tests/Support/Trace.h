#pragma once

/// \file
/// The rules of the trace-event format, for tests; for the test's only thread.

#include <nlohmann/json.hpp>

#include <map>
#include <set>
#include <stdint.h>
#include <string>
#include <utility>
#include <vector>

namespace Torvane::Testing
{
/// Checks a trace by the rules of the strictest viewer.
class TraceRules
{
public:
    /// \return the errors in a trace, a sentence each.
    static std::vector<std::string> FaultsOf(const std::string& trace)
    {
        TraceRules rules;
        rules.Check(nlohmann::json::parse(trace, nullptr, false));
        return rules.faults;
    }

private:
    using json = nlohmann::json;
    using Thread = std::pair<uint64_t, uint64_t>; ///< process and thread

    struct Timeline
    {
        uint64_t last = 0;              ///< microseconds
        std::vector<uint64_t> openEnds; ///< of the complete events that are open, enclosing ones first
        std::vector<std::string> begun; ///< names of begin events without their end
    };

    void Check(const json& trace)
    {
        if (!trace.is_object() || !trace.contains("traceEvents") || !trace["traceEvents"].is_array())
        {
            faults.push_back("it isn't an object with a list \"traceEvents\"");
            return;
        }
        if (trace.contains("displayTimeUnit") && trace["displayTimeUnit"] != "ms" &&
            trace["displayTimeUnit"] != "ns")
        {
            faults.push_back("\"displayTimeUnit\" is neither ms nor ns");
        }
        for (const json& event : trace["traceEvents"])
        {
            CheckEvent(event);
        }
        for (const auto& [arrow, isEnded] : flows)
        {
            if (!isEnded)
            {
                faults.push_back("the flow " + arrow + " has no end");
            }
        }
        for (const auto& [thread, timeline] : timelines)
        {
            const std::string place = std::to_string(thread.first) + "/" + std::to_string(thread.second);
            for (const std::string& name : timeline.begun)
            {
                faults.push_back(place + ": " + name + " begins and doesn't end");
            }
            if (namedThreads.count(thread) == 0 || namedProcesses.count(thread.first) == 0)
            {
                faults.push_back(place + " has no name");
            }
        }
    }

    void Require(bool condition, const json& event, const char* what)
    {
        if (!condition)
        {
            faults.push_back(event.dump(-1, ' ', false, json::error_handler_t::replace) + ": " + what);
        }
    }

    static bool IsText(const json& event, const char* member)
    {
        return event.contains(member) && event[member].is_string() && event[member] != "";
    }

    static bool IsCount(const json& event, const char* member)
    {
        return event.contains(member) && event[member].is_number_unsigned();
    }

    void CheckEvent(const json& event)
    {
        const bool isEvent = event.is_object() && IsText(event, "ph") && IsCount(event, "pid") &&
                             IsCount(event, "tid") && (IsText(event, "name") || event["ph"] == "E");
        Require(isEvent, event, "phase, name, process or thread is missing");
        if (!isEvent)
        {
            return;
        }
        Require(!event.contains("args") || event["args"].is_object(), event, "the arguments are no object");
        const std::string phase = event["ph"];
        if (phase == "M")
        {
            CheckMetadata(event);
            return;
        }
        Require(IsCount(event, "ts"), event, "it has no time in microseconds");
        if (!IsCount(event, "ts"))
        {
            return;
        }
        const uint64_t time = event["ts"];
        Timeline& timeline = timelines[{event["pid"], event["tid"]}];
        Require(time >= timeline.last, event, "it follows a later one of its thread");
        timeline.last = time;
        if (phase == "X")
        {
            CheckComplete(event, time, timeline);
        }
        else if (phase == "i")
        {
            const bool hasScope = IsText(event, "s");
            Require(hasScope && (event["s"] == "t" || event["s"] == "p" || event["s"] == "g"), event,
                    "an instant needs a scope");
        }
        else if (phase == "B")
        {
            timeline.begun.push_back(event["name"]);
        }
        else if (phase == "E")
        {
            Require(!timeline.begun.empty(), event, "it ends what hasn't begun");
            if (!timeline.begun.empty())
            {
                timeline.begun.pop_back();
            }
        }
        else if (phase == "s" || phase == "f")
        {
            CheckFlow(event, time, timeline);
        }
        else
        {
            Require(false, event, "it has a phase that isn't used here");
        }
    }

    /// An arrow begins and ends within complete events, on the threads that it names.
    void CheckFlow(const json& event, uint64_t time, const Timeline& timeline)
    {
        Require(IsCount(event, "id") && IsText(event, "cat"), event, "a flow needs an id and a category");
        Require(!timeline.openEnds.empty() && timeline.openEnds.front() > time, event,
                "it isn't within a complete event");
        const std::string arrow =
            event["name"].get<std::string>() + event.value("cat", "") + event.value("id", json()).dump();
        if (event["ph"] == "s")
        {
            Require(flows.insert({arrow, false}).second, event, "it begins once more");
            return;
        }
        const auto begun = flows.find(arrow);
        Require(begun != flows.end() && !begun->second, event, "it ends a flow that hasn't begun");
        Require(event.value("bp", "") == "e", event,
                "it would end at the next event instead of the enclosing one");
        if (begun != flows.end())
        {
            begun->second = true;
        }
    }

    void CheckMetadata(const json& event)
    {
        const json arguments = event.contains("args") ? event["args"] : json::object();
        const std::string name = event["name"];
        if (name == "process_name" || name == "thread_name")
        {
            Require(IsText(arguments, "name"), event, "there is no name in it");
            const Thread thread = {event["pid"], event["tid"]};
            const bool isFirst = name == "process_name" ? namedProcesses.insert(thread.first).second
                                                        : namedThreads.insert(thread).second;
            Require(isFirst, event, "it is named once more");
        }
        else
        {
            const bool isOrder = name == "process_sort_index" || name == "thread_sort_index";
            Require(isOrder && IsCount(arguments, "sort_index"), event,
                    "it is no metadata that viewers know");
        }
    }

    void CheckComplete(const json& event, uint64_t time, Timeline& timeline)
    {
        Require(IsCount(event, "dur"), event, "it has no duration in microseconds");
        if (!IsCount(event, "dur"))
        {
            return;
        }
        const uint64_t end = time + event["dur"].get<uint64_t>();
        std::vector<uint64_t>& open = timeline.openEnds;
        while (!open.empty() && open.back() <= time)
        {
            open.pop_back();
        }
        Require(open.empty() || end <= open.back(), event, "it ends after the enclosing one");
        open.push_back(end);
    }

    std::vector<std::string> faults;
    std::map<Thread, Timeline> timelines;
    std::map<std::string, bool> flows; ///< by name, category and id: whether it has ended
    std::set<uint64_t> namedProcesses;
    std::set<Thread> namedThreads;
};
} // namespace Torvane::Testing
