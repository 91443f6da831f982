// Benchmark 6: reading a JSON document into a tree in memory and freeing the tree.
#include "Functions.h"

#include "Shared/Serialization/JsonReader.h"

#include "../Support/Random.h"

#define RAPIDJSON_SSE2
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <windows.h>

namespace
{
size_t allocations;
} // namespace

// The slots of the import table through which everything in this program allocates, operator new included.
extern "C"
{
extern void* (*importedMalloc)(size_t) __asm__("__imp__malloc");
extern void* (*importedRealloc)(void*, size_t) __asm__("__imp__realloc");
}

namespace Torvane
{
namespace
{
void* (*realMalloc)(size_t);
void* (*realRealloc)(void*, size_t);

void* CountingMalloc(size_t size)
{
    ++allocations;
    return realMalloc(size);
}

void* CountingRealloc(void* block, size_t size)
{
    ++allocations;
    return realRealloc(block, size);
}

template<typename Function>
void SetImport(Function& slot, Function function)
{
    DWORD protection = 0;
    VirtualProtect(&slot, sizeof(slot), PAGE_READWRITE, &protection);
    slot = function;
    VirtualProtect(&slot, sizeof(slot), protection, &protection);
}

/// Runs a function once.
/// \return how often it allocated.
template<typename Function>
size_t CountAllocations(Function function)
{
    realMalloc = importedMalloc;
    realRealloc = importedRealloc;
    allocations = 0;
    SetImport(importedMalloc, CountingMalloc);
    SetImport(importedRealloc, CountingRealloc);
    function();
    SetImport(importedMalloc, realMalloc);
    SetImport(importedRealloc, realRealloc);
    return allocations;
}

struct Ours
{
    static constexpr const char* name = "ours";
    static bool Read(const std::string& text)
    {
        JsonParseState state = StartJsonParse(text.data(), static_cast<uint32_t>(text.size()), 0);
        JsonValue* root = ParseJson(state);
        benchmark::DoNotOptimize(root);
        FreeJson(root);
        return root != nullptr;
    }
};

/// From a terminated string, the only kind that it uses its vector instructions for.
template<unsigned flags>
bool ReadByRapidJson(const std::string& text)
{
    rapidjson::Document document;
    document.Parse<flags>(text.c_str());
    benchmark::DoNotOptimize(document);
    return !document.HasParseError();
}

struct RapidJson
{
    static constexpr const char* name = "RapidJSON";
    static bool Read(const std::string& text)
    {
        return ReadByRapidJson<rapidjson::kParseDefaultFlags>(text);
    }
};

/// Numbers aren't converted, as in ours.
struct RapidJsonWithStrings
{
    static constexpr const char* name = "RapidJSON, numbers as strings";
    static bool Read(const std::string& text)
    {
        return ReadByRapidJson<rapidjson::kParseNumbersAsStringsFlag>(text);
    }
};

struct Nlohmann
{
    static constexpr const char* name = "nlohmann";
    static bool Read(const std::string& text)
    {
        const nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
        benchmark::DoNotOptimize(document);
        return !document.is_discarded();
    }
};

template<typename Side>
void ReadDocument(benchmark::State& state, const std::string& text)
{
    bool accepted = false;
    const size_t count = CountAllocations([&] { accepted = Side::Read(text); });
    if (!accepted)
    {
        state.SkipWithError("the document isn't accepted");
    }
    for (auto _ : state)
    {
        Side::Read(text);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
    state.counters["allocations"] = static_cast<double>(count);
}

/// Writes a document, the same one in every run.
class Writer
{
public:
    std::string text;

    uint32_t Random(uint32_t end)
    {
        return random.Below(end);
    }

    template<size_t count>
    const char* Choose(const char* const (&choices)[count])
    {
        return choices[Random(count)];
    }

    __attribute__((format(printf, 2, 3))) void Write(const char* format, ...)
    {
        char line[1024];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(line, sizeof(line), format, arguments);
        va_end(arguments);
        text += line;
    }

    /// Removes the comma after the last member or element.
    void EndList(const char* closing)
    {
        text.resize(text.find_last_of(','));
        text += closing;
    }

private:
    Benchmarks::Random random;
};

constexpr const char* words[] = {"Editor",  "Window", "Recent", "Font",  "Server", "Cache",
                                 "Session", "Module", "Path",   "Color", "Layout", "Update",
                                 "Network", "Debug",  "Build",  "Log"};

/// Sections of settings as a host's file of preferences has them.
std::string MakePreferences(size_t size)
{
    Writer writer;
    writer.Write("{\n");
    for (uint32_t section = 0; section == 0 || writer.text.size() < size; ++section)
    {
        writer.Write("    \"%s%s%u\": {\n", writer.Choose(words), writer.Choose(words), section);
        for (uint32_t i = 0; i < 8 && (i == 0 || writer.text.size() < size); ++i)
        {
            writer.Write("        \"%s%s\": ", writer.Choose(words), writer.Choose(words));
            switch (writer.Random(6))
            {
            case 0:
                writer.Write("\"C:\\\\Program Files\\\\%s %u\\\\%s\\\\%s.dll\",\n", writer.Choose(words),
                             writer.Random(20), writer.Choose(words), writer.Choose(words));
                break;
            case 1:
                writer.Write("\"%s of the %s\",\n", writer.Choose(words), writer.Choose(words));
                break;
            case 2:
                writer.Write("%s,\n", writer.Random(2) != 0 ? "true" : "false");
                break;
            case 3:
                writer.Write("[%u, %u, %u],\n", writer.Random(256), writer.Random(256), writer.Random(256));
                break;
            default:
                writer.Write("%u,\n", writer.Random(65536));
                break;
            }
        }
        writer.EndList("\n    },\n");
    }
    writer.EndList("\n}\n");
    return writer.text;
}

/// Outlines of countries, without whitespace: little but numbers.
std::string MakeCoordinates(size_t size)
{
    Writer writer;
    writer.Write("{\"type\":\"FeatureCollection\",\"features\":[");
    while (writer.text.size() < size)
    {
        writer.Write(
            "{\"type\":\"Feature\",\"properties\":{\"name\":\"%s\"},\"geometry\":{\"type\":\"Polygon\","
            "\"coordinates\":[[",
            writer.Choose(words));
        for (uint32_t i = 0; i < 500; ++i)
        {
            writer.Write("[-%u.%08u%07u,%u.%08u%07u],", writer.Random(180), writer.Random(1U << 24),
                         writer.Random(1U << 23), writer.Random(90), writer.Random(1U << 24),
                         writer.Random(1U << 23));
        }
        writer.EndList("]]}},\n");
    }
    writer.EndList("]}");
    return writer.text;
}

/// Events and their prices, indented: the same few keys again and again.
std::string MakeCatalogue(size_t size)
{
    Writer writer;
    writer.Write("{\n    \"performances\": [\n");
    while (writer.text.size() < size)
    {
        writer.Write("        {\n            \"eventId\": %u,\n            \"id\": %u,\n"
                     "            \"name\": \"%s and %s\",\n            \"description\": null,\n"
                     "            \"logo\": \"/images/%u.png\",\n            \"numbered\": %s,\n"
                     "            \"prices\": [\n",
                     138000000 + writer.Random(1U << 20), 339000000 + writer.Random(1U << 20),
                     writer.Choose(words), writer.Choose(words), writer.Random(100000),
                     writer.Random(2) != 0 ? "true" : "false");
        for (uint32_t i = 0; i < 4; ++i)
        {
            writer.Write("                {\n                    \"amount\": %u,\n"
                         "                    \"audienceSubCategoryId\": %u,\n"
                         "                    \"seatCategoryId\": %u\n                },\n",
                         10000 + writer.Random(100000), 337000000 + writer.Random(1U << 20),
                         338000000 + writer.Random(1U << 20));
        }
        writer.EndList("\n            ],\n            \"areas\": [\n");
        for (uint32_t i = 0; i < 6; ++i)
        {
            writer.Write("                {\n                    \"areaId\": %u,\n"
                         "                    \"blockIds\": []\n                },\n",
                         205000000 + writer.Random(1U << 20));
        }
        writer.EndList("\n            ]\n        },\n");
    }
    writer.EndList("\n    ]\n}\n");
    return writer.text;
}

/// What people write to each other: escapes, and characters from all over Unicode, raw and escaped.
std::string MakeMessages(size_t size)
{
    static constexpr const char* pieces[] = {
        "Just landed. ",
        "\xE5\x90\x8D\xE5\x89\x8D\xEF\xBC\x9A\xE5\x89\x8D\xE7\x94\xB0\xE3\x81\x82 ",
        "\\u540d\\u524d\\uff1a\\u524d\\u7530 ",
        "\\ud83d\\ude02\\ud83d\\ude02 ",
        "\xF0\x9F\x98\x82\xF0\x9F\x8E\x89 ",
        "she said \\\"never again\\\" ",
        "\\n\\n",
        "K\xC3\xB6ln gr\xC3\xBC\xC3\x9Ft ",
        "caf\\u00e9 ",
        "http:\\/\\/t.example\\/x7Kq ",
        "@somebody who reads all of this, ",
        "\xD0\xBF\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82 "};
    Writer writer;
    writer.Write("{\"statuses\":[");
    while (writer.text.size() < size)
    {
        writer.Write("{\"id\":5058749%09u,\"created_at\":\"Sun Aug 31 00:29:%02u +0000 2014\",\"text\":\"",
                     writer.Random(1U << 24), writer.Random(60));
        for (uint32_t i = 0; i < 8; ++i)
        {
            writer.Write("%s", writer.Choose(pieces));
        }
        writer.Write(
            "\",\"truncated\":false,\"in_reply_to_status_id\":null,\"user\":{\"id\":%u,\"name\":\"%s%s\","
            "\"description\":\"%s%s%s\",\"followers_count\":%u,\"verified\":%s},\"retweet_count\":%u},",
            writer.Random(1U << 24), writer.Choose(pieces), writer.Choose(words), writer.Choose(pieces),
            writer.Choose(pieces), writer.Choose(pieces), writer.Random(5000),
            writer.Random(8) == 0 ? "true" : "false", writer.Random(100));
    }
    writer.EndList("]}");
    return writer.text;
}

/// \param bytes what a full round reads of it.
void AddDocument(const char* name, const std::string& text, double bytes)
{
    const auto add = [&](auto side) {
        using Side = decltype(side);
        AddBenchmark(std::string("6|") + name + "|" + Side::name, 1,
                     static_cast<int64_t>(bytes / static_cast<double>(text.size())),
                     [text](benchmark::State& state) { ReadDocument<Side>(state, text); });
    };
    add(Ours{});
    add(RapidJson{});
    add(RapidJsonWithStrings{});
    add(Nlohmann{});
}
} // namespace

void AddJson(double scale)
{
    const double bytes = scale * (32 << 20);
    AddDocument("preferences, 1 KB", MakePreferences(1000), bytes);
    AddDocument("preferences, 10 KB", MakePreferences(10000), bytes);
    AddDocument("preferences, 100 KB", MakePreferences(100000), bytes);
    AddDocument("preferences, 1 MB", MakePreferences(1000000), bytes);
    AddDocument("preferences, 10 MB", MakePreferences(10000000), bytes);
    AddDocument("coordinates, 2 MB", MakeCoordinates(2000000), bytes);
    AddDocument("catalogue, 2 MB", MakeCatalogue(2000000), bytes);
    AddDocument("messages, 2 MB", MakeMessages(2000000), bytes);
}
} // namespace Torvane
