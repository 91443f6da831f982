#include "tools/blobs/Filter.h"

#include <algorithm>
#include <stdlib.h>

namespace Torvane::Blobs
{
namespace
{
bool IsSameIgnoringCase(const std::string& left, const std::string& right)
{
    const auto lower = [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [&lower](char a, char b) { return lower(a) == lower(b); });
}
} // namespace

bool Filter::Passes(const RecordedBlob& blob) const
{
    const bool isWay = blob.direction == Direction::FromAgent ? isFromAgentWanted : isToAgentWanted;
    return isWay && blob.time >= from && blob.time <= to && (types.empty() || types.count(blob.Type()) != 0);
}

bool Filter::AddTypes(const std::string& list, std::string& unknown)
{
    for (size_t begin = 0; begin <= list.size();)
    {
        const size_t comma = list.find(',', begin);
        const size_t end = comma == std::string::npos ? list.size() : comma;
        const std::string text = list.substr(begin, end - begin);
        begin = end + 1;
        uint64_t number = 0;
        bool isKnown = ParseNumber(text, number) && number <= UINT32_MAX;
        for (const Bridge::BlobLayout& layout : Bridge::AllBlobLayouts())
        {
            if (IsSameIgnoringCase(text, layout.name))
            {
                number = static_cast<uint32_t>(layout.type);
                isKnown = true;
            }
        }
        if (!isKnown)
        {
            unknown = text;
            return false;
        }
        types.insert(static_cast<BlobType>(number));
    }
    return true;
}

std::vector<const RecordedBlob*> Filter::Choose(const Recording& recording) const
{
    std::vector<const RecordedBlob*> chosen;
    for (const RecordedBlob& blob : recording.blobs)
    {
        if (Passes(blob))
        {
            chosen.push_back(&blob);
        }
    }
    return chosen;
}

bool ParseNumber(const std::string& text, uint64_t& number)
{
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos)
    {
        return false;
    }
    number = strtoull(text.c_str(), nullptr, 10);
    return true;
}

bool ParseSeconds(const std::string& text, double& seconds)
{
    const size_t point = text.find('.');
    const bool isPlain = !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos &&
                         (point == std::string::npos || text.find('.', point + 1) == std::string::npos) &&
                         text.size() > (point != std::string::npos);
    seconds = isPlain ? strtod(text.c_str(), nullptr) : 0;
    return isPlain;
}
} // namespace Torvane::Blobs
