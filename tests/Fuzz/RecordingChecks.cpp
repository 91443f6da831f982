#include "tests/Fuzz/RecordingChecks.h"

#include "bridge/Recording/BlobDecoder.h"
#include "bridge/Recording/Encoding.h"
#include "tests/Support/Trace.h"
#include "tools/blobs/Exports.h"
#include "tools/blobs/Listing.h"
#include "tools/blobs/PageData.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace Torvane::Testing
{
namespace
{
using namespace Blobs;
using Bridge::DecodedField;

constexpr size_t mostShown = 4; // of a recording's Blobs, one by one

bool IsUtf8(const std::string& text)
{
    return Bridge::ValidUtf8(text) == text;
}

size_t CountOf(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t i = text.find(part); i != std::string::npos; i = text.find(part, i + 1))
    {
        ++count;
    }
    return count;
}

/// \return how many bytes of text the fields have, three for one of the payload at most.
size_t CheckFields(const std::vector<DecodedField>& fields, size_t payloadSize)
{
    size_t textSize = 0;
    for (const DecodedField& field : fields)
    {
        const bool isWhole = field.problem.empty();
        Require(field.size == 0 || (field.offset <= payloadSize && field.size <= payloadSize - field.offset),
                "a field reaches out of the payload");
        Require(field.itemSize == 0 ||
                    (field.itemOffset <= payloadSize && field.itemSize <= payloadSize - field.itemOffset),
                "a field refers out of the payload");
        Require(isWhole || (field.children.empty() && field.text.empty()), "a problem has a value");
        Require(IsUtf8(field.text), "a text isn't UTF-8");
        textSize += field.text.size() + CheckFields(field.children, payloadSize);
    }
    return textSize;
}

void CheckBlob(const RecordedBlob& blob)
{
    const std::vector<DecodedField> fields =
        Bridge::DecodePayload(blob.Type(), blob.Payload(), blob.PayloadSize());
    Require(CheckFields(fields, blob.PayloadSize()) <= fields.size() * 3 * blob.PayloadSize(),
            "the texts are longer than all of the payload");
}

std::string TextOf(const Recording& recording)
{
    std::string text = Bridge::RecordingHeaderLine(recording.header);
    for (const RecordedBlob& blob : recording.blobs)
    {
        text += Bridge::RecordedBlobLine(blob);
    }
    return text;
}

void CheckSecondReading(const Recording& recording)
{
    const std::string text = TextOf(recording);
    Recording again;
    std::string reason;
    Require(ParseRecording(text, again, reason), "what was written isn't read");
    Require(!again.isCut && again.blobs.size() == recording.blobs.size(), "Blobs are lost");
    Require(again.header.bridgeProcessId == recording.header.bridgeProcessId &&
                again.header.startedAt == recording.header.startedAt,
            "the header has changed");
    for (size_t i = 0; i < again.blobs.size(); ++i)
    {
        const RecordedBlob& was = recording.blobs[i];
        const RecordedBlob& is = again.blobs[i];
        Require(is.number == was.number && is.hostProcessId == was.hostProcessId &&
                    is.direction == was.direction && is.bytes == was.bytes && fabs(is.time - was.time) < 1e-6,
                "a Blob has changed");
    }
    Require(TextOf(again) == text, "what is read again is written in another way");
}

void CheckListing(const Recording& recording)
{
    for (const bool isWhole : {false, true})
    {
        const std::string list = ListBlobs(recording, Filter(), isWhole);
        Require(CountOf(list, "\n") == recording.blobs.size() + 1, "the list hasn't a line for each Blob");
        Require(IsUtf8(list), "the list isn't UTF-8");
        for (size_t i = 0; i < std::min(mostShown, recording.blobs.size()); ++i)
        {
            Require(IsUtf8(ShowBlob(recording.blobs[i], isWhole)), "a Blob isn't shown in UTF-8");
        }
    }
}

void CheckTrace(const Recording& recording, const Filter& filter)
{
    for (const std::string& fault : TraceRules::FaultsOf(MakeTrace(recording, filter)))
    {
        Require(false, fault.c_str());
    }
}

/// The sizes of the columns of a page with this description.
size_t ColumnSizes(const nlohmann::json& description)
{
    const size_t blobs = description["blobCount"];
    const size_t spans = description["spanCount"];
    const auto aligned = [](size_t size) {
        return (size + 7) / 8 * 8;
    };
    return 3 * 8 * blobs + 4 * aligned(4 * blobs) + 2 * aligned(blobs) + 2 * 8 * spans +
           4 * aligned(4 * spans) + aligned(spans);
}

void CheckPage(const Recording& recording)
{
    const std::string data = MakePageData(recording, Filter(), "a <title> & more");
    uint32_t size = 0;
    memcpy(&size, data.data(), sizeof(size));
    const nlohmann::json description = nlohmann::json::parse(data.substr(sizeof(size), size), nullptr, false);
    Require(description.is_object() && description["blobCount"] == recording.blobs.size(),
            "the page hasn't each Blob");
    Require(data.size() == (sizeof(size) + size + 7) / 8 * 8 + ColumnSizes(description) +
                               description["payloadSize"].get<size_t>(),
            "the page's columns have another size");
    const std::string page = MakePage(recording, Filter(), "a <title> & more");
    Require(CountOf(page, "</script") == 2 && CountOf(page, "<script") == 2, "something has broken the page");
}
} // namespace

void Require(bool condition, const char* what)
{
    if (!condition)
    {
        fprintf(stderr, "%s\n", what);
        abort();
    }
}

void CheckRecording(const Recording& recording)
{
    for (const RecordedBlob& blob : recording.blobs)
    {
        CheckBlob(blob);
    }
    CheckSecondReading(recording);
    CheckListing(recording);
    CheckPage(recording);
    Filter fromAgent;
    fromAgent.isToAgentWanted = false;
    CheckTrace(recording, Filter());
    CheckTrace(recording, fromAgent);
}
} // namespace Torvane::Testing
