#include "bridge/Recording/BlobDecoder.h"

#include "bridge/Recording/FieldText.h"
#include "tests/Support/Blobs.h"

#include "gtest/gtest.h"

#include <nlohmann/json.hpp>

#include <random>

using namespace Torvane;
using namespace Torvane::Bridge;
using namespace Torvane::Testing;

namespace
{
using Json = nlohmann::ordered_json;

BlobType TypeOf(const std::vector<uint8_t>& blob)
{
    uint32_t type;
    memcpy(&type, blob.data() + 4, sizeof(type));
    return static_cast<BlobType>(type);
}

Json Decode(BlobType type, const std::vector<uint8_t>& payload)
{
    std::string json;
    AppendFieldsAsJson(json, DecodePayload(type, payload.data(), payload.size()), payload.data());
    return Json::parse(json, nullptr, false);
}

Json Decode(const std::vector<uint8_t>& blob)
{
    return Decode(TypeOf(blob), std::vector<uint8_t>(blob.begin() + 8, blob.end()));
}

std::string Summary(const std::vector<uint8_t>& blob)
{
    return FieldSummary(DecodePayload(TypeOf(blob), blob.data() + 8, blob.size() - 8), blob.data() + 8);
}

Json Problem(const char* text)
{
    return {{"problem", text}};
}
} // namespace

TEST(BlobLayout, KnowsTheFortyBlobsOfTheAgentByTheirNumbers)
{
    size_t known = 0;
    for (uint32_t number = 0; number < blobTypeCount; ++number)
    {
        known += FindBlobLayout(static_cast<BlobType>(number)) != nullptr;
    }
    EXPECT_EQ(40u, known);
    EXPECT_EQ("Version", BlobName(static_cast<BlobType>(0)));
    EXPECT_EQ("CopyMemory", BlobName(static_cast<BlobType>(28)));
    EXPECT_EQ("HandleExceptionWindowsResult", BlobName(static_cast<BlobType>(67)));
    EXPECT_EQ("Synchronize", BlobName(static_cast<BlobType>(76)));
    EXPECT_EQ("Blob 2", BlobName(static_cast<BlobType>(2)));
    EXPECT_EQ("Blob 77", BlobName(static_cast<BlobType>(77)));
}

TEST(BlobLayout, HasOffsetsAndSizesOfTheWireRecords)
{
    const RecordLayout& layout = *FindBlobLayout(BlobType::PatchLoaded)->fixed;
    EXPECT_EQ(80u, layout.size);
    const FieldLayout& pageRanges = layout.fields[9];
    EXPECT_STREQ("pageRanges", pageRanges.name);
    EXPECT_EQ(0x38u, pageRanges.offset);
    EXPECT_EQ(8u, pageRanges.size);
    EXPECT_STREQ("WirePageRange", pageRanges.elements->name);
}

TEST(BlobDecoder, ReadsStringsListsAndNumbers)
{
    EXPECT_EQ(Json({{"version", "2.4.0"}}), Decode(MakeVersion()));
    EXPECT_EQ(Json({{"level", 4}, {"text", "a \"text\""}}),
              Decode(MakeLog(BlobLogLevel::Error, "a \"text\"")));
    EXPECT_EQ(R"(level=4 (Error) text="a \"text\"")", Summary(MakeLog(BlobLogLevel::Error, "a \"text\"")));

    const Json loaded = Decode(MakePatchLoaded(u"C:\\p\u00E4tch\U0001F600.dll"));
    EXPECT_EQ("C:\\p\xC3\xA4tch\xF0\x9F\x98\x80.dll", loaded["patchPath"]);
    EXPECT_EQ("", loaded["secondText"]);
    EXPECT_EQ("0x72340000", loaded["base"]);
    EXPECT_EQ(0x5000, loaded["imageSize"]);
    EXPECT_EQ(Json({{{"base", "0x72340000"}, {"size", 4096}, {"protection", 2}},
                    {{"base", "0x72341000"}, {"size", 16384}, {"protection", 64}}}),
              loaded["pageRanges"]);
    EXPECT_EQ(Json::array(), loaded["secondPageRanges"]);
    EXPECT_FALSE(loaded.contains("padding1C"));
}

TEST(BlobDecoder, ReadsInlineStringsInLists)
{
    const Json modules = Decode(MakeEnableModules(2, 0x77770000));
    EXPECT_EQ("A.dll", modules["modules"][1]["path"]);
    EXPECT_EQ("0x10010000", modules["modules"][1]["base"]);
    EXPECT_EQ(Json({1, 1}), modules["pageRangeCounts"]);
    EXPECT_EQ("0x77770000", modules["latch"]);
    EXPECT_EQ(480u, modules["executables"][0]["optionalHeader"].get<std::string>().size());
    EXPECT_EQ(
        "modules=2 records executables=2 records pageRangeCounts=2 numbers pageRanges=2 records zeros=2 "
        "numbers secondPageRanges=0 records latch=0x77770000",
        Summary(MakeEnableModules(2, 0x77770000)));
}

TEST(BlobDecoder, ReadsAsMuchDataAsOtherFieldsSpecify)
{
    EXPECT_EQ("0102030405060708", Decode(MakeReadMemoryResult({1, 2, 3, 4, 5, 6, 7, 8}, 9))["data"]);
    EXPECT_EQ("", Decode(MakeReadMemoryResult({}, 9))["data"]);
    const Json write = Decode(MakeWriteMemory({0x401000, 0x402000}, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(3, write["elementSize"]);
    EXPECT_EQ(Json({"0x00401000", "0x00402000"}), write["addresses"]);
    EXPECT_EQ("010203040506", write["data"]);
    EXPECT_EQ("elementSize=4 elementCount=1 addresses=0x00401000 token=0xFEDCBA9876543210",
              Summary(MakeReadMemory({0x401000}, 0xFEDCBA9876543210)));
}

TEST(BlobDecoder, ReadsStringsThatAreRelativeToTheirEntries)
{
    EXPECT_EQ(Json({"one", "second"}), Decode(MakeCallHooks("one", "second"))["textList"]);
    EXPECT_TRUE(Decode(MakeCallHooks("one", "second"))["firstText"].is_null());
    EXPECT_EQ("kind=8 first=0x00401000 end=0x00401008 number=0 textList=2 strings",
              Summary(MakeCallHooks("one", "second")));
}

TEST(BlobDecoder, RefusesSharedStringsThatTogetherExceedThePayload)
{
    const auto decodeShared = [](uint32_t count) {
        const std::string text(100, 'x');
        std::vector<uint8_t> data;
        for (uint32_t i = 0; i < count; ++i)
        {
            const uint32_t distance = (count - i) * static_cast<uint32_t>(sizeof(RelativeOffset));
            const auto bytes = reinterpret_cast<const uint8_t*>(&distance);
            data.insert(data.end(), bytes, bytes + sizeof(distance));
        }
        data.insert(data.end(), text.c_str(), text.c_str() + text.size() + 1);
        BlobWriter<CallHooksBlob> blob;
        blob.Data(&CallHooksBlob::textList, data, count);
        return Decode(blob.Finish())["textList"];
    };
    EXPECT_EQ(Json({std::string(100, 'x')}), decodeShared(1));
    EXPECT_EQ(Problem("its strings are longer than the payload"), decodeShared(2000));
}

TEST(BlobDecoder, ReadsRegistersAndTheRecordOfAnException)
{
    const Json exception = Decode(MakeException(77, 0x1F4));
    EXPECT_EQ(77, exception["threadId"]);
    EXPECT_EQ("0x00401234", exception["context"]["eip"]);
    EXPECT_EQ("0xC0000005", exception["record"]["code"]);
    EXPECT_NE(std::string::npos,
              Summary(MakeException(77, 0x1F4)).find("code=0xC0000005 (EXCEPTION_ACCESS_VIOLATION)"));
    EXPECT_NE(std::string::npos, Summary(MakeExceptionResult(0x1F4, 2)).find("action=2 (skip instruction)"));
}

TEST(BlobDecoder, ReadsSignedNumbers)
{
    const SetIntPreferencesBlob blob = {3, -17};
    EXPECT_EQ(Json({{"preference", 3}, {"value", -17}}),
              Decode(MakeBlob(BlobType::SetIntPreferences, &blob, sizeof(blob))));
}

TEST(BlobDecoder, ShowsPayloadsWithoutALayoutAsBytes)
{
    EXPECT_EQ(Json({{"payload", "0102"}}), Decode(static_cast<BlobType>(2), {1, 2}));
    EXPECT_EQ(Json({{"payload", "ff"}}), Decode(static_cast<BlobType>(0xFFFFFFFF), {0xFF}));
    EXPECT_EQ(Json({{"payload", "07"}}), Decode(BlobType::RequestReload, {7}));
    EXPECT_EQ(Json::object(), Decode(MakeEmpty(BlobType::RequestReload)));
}

TEST(BlobDecoder, ReportsFieldsThatAShortPayloadLacks)
{
    const Json loaded = Decode(BlobType::Restart, std::vector<uint8_t>(10));
    EXPECT_EQ("0x00000000", loaded["event"]);
    EXPECT_EQ(Problem("the payload ends before its end"), loaded["processId"]);
    EXPECT_EQ(Problem("the payload ends before its end"), loaded["environment"]);
    const std::vector<uint8_t> blob = MakeBlob(BlobType::Restart, std::vector<uint8_t>(10).data(), 10);
    EXPECT_EQ(0u,
              Summary(blob).find("event=0x00000000 processId=(the payload ends before its end) executableP"));
}

TEST(BlobDecoder, ReportsFieldsThatReferToDataOutsideOfThePayload)
{
    const Json outside = Problem("refers to data outside of the payload");
    EXPECT_EQ(outside, Decode(BlobType::Version, {5, 0, 0, 0})["version"]);
    EXPECT_EQ(outside, Decode(BlobType::Version, {0xFF, 0xFF, 0xFF, 0xFF})["version"]);
    EXPECT_EQ(Problem("the string has no terminator"), Decode(BlobType::Version, {4, 0, 0, 0})["version"]);
    EXPECT_EQ(Problem("the string has no terminator"),
              Decode(BlobType::Version, {4, 0, 0, 0, 'a'})["version"]);
    EXPECT_EQ("a", Decode(BlobType::Version, {4, 0, 0, 0, 'a', 0})["version"]);

    std::vector<uint8_t> blob = MakePatchLoaded(u"x");
    blob[8 + 0x3C] = 100; // the count of page ranges
    EXPECT_EQ(outside, Decode(blob)["pageRanges"]);
    blob = MakeReadMemory({1}, 2);
    blob[8 + 0x17] = 0xFF; // elementCount
    EXPECT_EQ(outside, Decode(blob)["addresses"]);
    blob = MakeWriteMemory({1}, {1});
    blob[8 + 0x0F] = 0x80; // elementSize: times the count it doesn't fit
    blob[8 + 0x10] = 2;
    EXPECT_EQ(outside, Decode(blob)["data"]);
    blob = MakeEnableModules(1, 1);
    blob[8 + 56 + 1] = 0x10; // the length of the path
    EXPECT_EQ(Problem("the length 4101 exceeds the string's capacity"), Decode(blob)["modules"][0]["path"]);
}

TEST(BlobDecoder, ReturnsValidUtf8ForAnyString)
{
    EXPECT_EQ("a\xEF\xBF\xBD!", Decode(MakeVersion("a\xFF!"))["version"]);
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD", Decode(MakeVersion("\xED\xA0\x80"))["version"]);
    EXPECT_EQ("\xEF\xBF\xBDx", Decode(MakeLoadPatch(std::u16string{char16_t(0xD83D), u'x'}))["patchPath"]);
    EXPECT_EQ("x\xEF\xBF\xBD", Decode(MakeLoadPatch(std::u16string{u'x', char16_t(0xDE00)}))["patchPath"]);
}

TEST(BlobDecoder, StaysWithinAnyPayload)
{
    const std::vector<std::vector<uint8_t>> blobs = {
        MakeVersion(),           MakeRegisterProcess(5),    MakeEnableModules(3, 1),
        MakeLoadPatch(u"p.dll"), MakePatchLoaded(u"p.dll"), MakeCallHooks("a", "b"),
        MakeException(1, 2),     MakeReadMemory({1, 2}, 3), MakeWriteMemory({1}, {1, 2}),
    };
    std::mt19937 random(20240229);
    for (int round = 0; round < 20000; ++round)
    {
        const std::vector<uint8_t>& blob = blobs[random() % blobs.size()];
        std::vector<uint8_t> payload(blob.begin() + 8, blob.end());
        payload.resize(random() % (payload.size() + 1));
        for (int change = 0; change < 8 && !payload.empty(); ++change)
        {
            const size_t reach = payload.size() < 128 ? payload.size() : 128;
            payload[random() % reach] = static_cast<uint8_t>(random());
        }
        // The sanitizers report an access outside of the payload.
        const std::vector<DecodedField> fields = DecodePayload(TypeOf(blob), payload.data(), payload.size());
        std::string json;
        AppendFieldsAsJson(json, fields, payload.data());
        ASSERT_TRUE(Json::accept(json)) << json;
        FieldSummary(fields, payload.data());
        for (const DecodedField& field : fields)
        {
            if (field.problem.empty())
            {
                ASSERT_LE(field.offset + field.size, payload.size());
                ASSERT_LE(field.itemOffset + field.itemSize, payload.size());
            }
        }
    }
}
