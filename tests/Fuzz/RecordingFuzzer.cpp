/// \file
/// Feeds files to the reader of recordings. Whatever it accepts has to fulfil what holds for every recording.

#include "tests/Fuzz/RecordingChecks.h"

namespace Torvane::Testing
{
namespace
{
void CheckCutText(const std::string& text, const Blobs::Recording& whole)
{
    Blobs::Recording cut;
    std::string reason;
    Require(Blobs::ParseRecording(text.substr(0, text.size() - 1), cut, reason),
            "without its last line's end it is no recording any more");
    Require(cut.isCut && cut.blobs.size() + 1 == whole.blobs.size(),
            "another line than the last was left out");
}

void CheckText(const std::string& text)
{
    Blobs::Recording recording;
    std::string reason;
    if (Blobs::ParseRecording(text, recording, reason))
    {
        CheckRecording(recording);
        if (!recording.isCut && !recording.blobs.empty())
        {
            CheckCutText(text, recording);
        }
    }
    else
    {
        Require(!reason.empty() && reason.find_first_of("\r\n") == std::string::npos,
                "a refusal needs a reason in one line");
    }
}
} // namespace
} // namespace Torvane::Testing

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Torvane::Testing::CheckText({reinterpret_cast<const char*>(data), size});
    return 0;
}
