#pragma once

/// \file
/// Builds recordings for tests, Blob by Blob; for the test's only thread.

#include "tests/Support/Blobs.h"
#include "tools/blobs/Recording.h"

namespace Torvane::Testing
{
class TestRecording
{
public:
    static constexpr uint32_t firstHost = 1234;

    /// The Blobs are a millisecond apart, the first at 1 ms.
    TestRecording& From(std::vector<uint8_t> bytes, uint32_t host = firstHost)
    {
        return Add(Bridge::Direction::FromAgent, std::move(bytes), host);
    }

    TestRecording& To(std::vector<uint8_t> bytes, uint32_t host = firstHost)
    {
        return Add(Bridge::Direction::ToAgent, std::move(bytes), host);
    }

    /// The content of the file.
    std::string Text() const
    {
        Bridge::RecordingHeader header;
        header.bridgeProcessId = 99;
        header.startedAt = "2024-02-29T12:34:56.789Z";
        std::string text = Bridge::RecordingHeaderLine(header);
        for (const Bridge::RecordedBlob& blob : recording.blobs)
        {
            text += Bridge::RecordedBlobLine(blob);
        }
        return text;
    }

    const Blobs::Recording& Get() const
    {
        return recording;
    }

private:
    TestRecording& Add(Bridge::Direction direction, std::vector<uint8_t> bytes, uint32_t host)
    {
        Bridge::RecordedBlob blob;
        blob.number = recording.blobs.size() + 1;
        blob.time = static_cast<double>(blob.number) * 0.001;
        blob.hostProcessId = host;
        blob.direction = direction;
        blob.bytes = std::move(bytes);
        recording.blobs.push_back(blob);
        return *this;
    }

    Blobs::Recording recording;
};

/// A connection and a reload whose first patch can't be loaded, in 12 Blobs.
inline TestRecording ReloadRecording()
{
    TestRecording recording;
    recording.To(MakeVersion()).From(MakeVersion()).From(MakeRegisterProcess(TestRecording::firstHost));
    recording.To(MakeEmpty(BlobType::RequestReload));
    recording.From(MakeProcessBlob(BlobType::Reload, TestRecording::firstHost));
    recording.To(MakeLoadPatch(u"C:\\patches\\1.dll"));
    recording.From(MakeLog(BlobLogLevel::Error, "no <such> file"));
    recording.To(MakeLoadPatch(u"C:\\patches\\2.dll")).From(MakePatchLoaded(u"C:\\patches\\2.dll"));
    recording.To(MakeReadMemory({0x401000}, 7)).From(MakeReadMemoryResult({1, 2, 3, 4}, 7));
    recording.To(MakeEmpty(BlobType::FinishAfterHotReload));
    return recording;
}
} // namespace Torvane::Testing
