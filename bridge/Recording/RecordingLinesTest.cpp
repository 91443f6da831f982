#include "bridge/Recording/RecordingLines.h"

#include "bridge/Recording/Encoding.h"
#include "tests/Support/Blobs.h"

#include "gtest/gtest.h"

using namespace Torvane;
using namespace Torvane::Bridge;
using namespace Torvane::Testing;

TEST(RecordingLines, HoldABlobWithItsFieldsAndItsBytes)
{
    RecordedBlob blob;
    blob.number = 3;
    blob.time = 1.2345678;
    blob.hostProcessId = 1234;
    blob.direction = Direction::ToAgent;
    blob.bytes = MakeVersion();
    EXPECT_EQ(
        R"({"blob":3,"time":1.234568,"host":1234,"direction":"toAgent","type":0,"name":"Version","size":10,)"
        R"("fields":{"version":"2.4.0"},"bytes":"0a0000000000000004000000322e342e3000"})"
        "\n",
        RecordedBlobLine(blob));
}

TEST(RecordingLines, HaveTimesInMicroseconds)
{
    RecordedBlob blob;
    blob.bytes = MakeEmpty(BlobType::RequestReload);
    for (const auto& [time, text] :
         {std::pair(0.0, "0.0"), std::pair(5.0, "5.0"), std::pair(0.000001, "0.000001"),
          std::pair(0.1200004, "0.12"), std::pair(1.9999996, "2.0"), std::pair(123456789.5, "123456789.5")})
    {
        blob.time = time;
        EXPECT_NE(std::string::npos,
                  RecordedBlobLine(blob).find(std::string(",\"time\":") + text + ",\"host\""))
            << text;
    }
}

TEST(RecordingLines, TellWhichWayAndWhatIsUnknown)
{
    RecordedBlob blob;
    blob.number = 1;
    blob.bytes = MakeBlob(static_cast<BlobType>(2), "\x0A\xFF", 2);
    EXPECT_EQ(R"({"blob":1,"time":0.0,"host":0,"direction":"fromAgent","type":2,"name":"Blob 2","size":2,)"
              R"("fields":{"payload":"0aff"},"bytes":"02000000020000000aff"})"
              "\n",
              RecordedBlobLine(blob));
}

TEST(RecordingLines, BeginWithWhatTheRecordingIs)
{
    RecordingHeader header;
    header.bridgeProcessId = 56;
    header.startedAt = "2024-02-29T12:34:56.789Z";
    EXPECT_EQ(R"({"recording":"Torvane Blobs","format":1,"apiVersion":"2.4.0","bridge":56,)"
              R"("startedAt":"2024-02-29T12:34:56.789Z"})"
              "\n",
              RecordingHeaderLine(header));
}

TEST(Encoding, WritesAndReadsHexadecimalDigits)
{
    const uint8_t bytes[] = {0x00, 0x7F, 0xFA};
    EXPECT_EQ("007ffa", HexFromBytes(bytes, sizeof(bytes)));
    std::vector<uint8_t> read;
    EXPECT_TRUE(BytesFromHex("007fFA", read));
    EXPECT_EQ(std::vector<uint8_t>({0x00, 0x7F, 0xFA}), read);
    EXPECT_TRUE(BytesFromHex("", read));
    EXPECT_FALSE(BytesFromHex("007", read));
    EXPECT_FALSE(BytesFromHex("0g", read));
    EXPECT_EQ("0x00000000", HexNumber(0, 8));
    EXPECT_EQ("0x12", HexNumber(0x12, 2));
    EXPECT_EQ("0xFEDCBA9876543210", HexNumber(0xFEDCBA9876543210, 8));
}

TEST(Encoding, EscapesWhatJsonForbids)
{
    const auto quoted = [](const std::string& text) {
        std::string json;
        AppendQuoted(json, text);
        return json;
    };
    EXPECT_EQ("\"\"", quoted(""));
    EXPECT_EQ(R"("C:\\\"a\" / \b\f\n\r\t")", quoted("C:\\\"a\" / \b\f\n\r\t"));
    EXPECT_EQ("\"\\u0000\\u001f\x7F\xC3\xA4\"", quoted(std::string("\0\x1F\x7F\xC3\xA4", 5)));
}

TEST(Encoding, KeepsWhatIsUtf8)
{
    const std::string good = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF";
    EXPECT_EQ(good, ValidUtf8(good));
    for (const char* bad :
         {"\x80", "\xC0\x80", "\xC3", "\xE0\x80\x80", "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF5"})
    {
        EXPECT_EQ(0u, ValidUtf8(bad).find("\xEF\xBF\xBD")) << bad;
    }
}
