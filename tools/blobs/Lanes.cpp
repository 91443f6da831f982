#include "tools/blobs/Lanes.h"

#include <algorithm>
#include <stdint.h>

namespace Torvane::Blobs
{
void AssignLanes(std::vector<Span>& spans)
{
    std::stable_sort(spans.begin(), spans.end(), [](const Span& left, const Span& right) {
        return left.track != right.track   ? left.track < right.track
               : left.begin != right.begin ? left.begin < right.begin
                                           : left.end > right.end;
    });
    std::vector<std::vector<double>> lanes; // for each lane, the ends of its open spans
    size_t track = SIZE_MAX;
    for (Span& span : spans)
    {
        if (span.track != track)
        {
            track = span.track;
            lanes.clear();
        }
        for (span.lane = 0;; ++span.lane)
        {
            if (span.lane == lanes.size())
            {
                lanes.emplace_back();
            }
            std::vector<double>& open = lanes[span.lane];
            while (!open.empty() && open.back() <= span.begin)
            {
                open.pop_back();
            }
            if (open.empty() || open.back() >= span.end)
            {
                span.depth = open.size();
                open.push_back(span.end);
                break;
            }
        }
    }
}
} // namespace Torvane::Blobs
