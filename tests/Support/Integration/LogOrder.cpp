#include "tests/Support/Integration/LogOrder.h"

#include <set>

namespace Torvane::Testing
{
namespace
{
using Position = std::vector<size_t>; ///< how many of each sequence have been assigned

/// Tries every assignment. Few records fit more than one sequence, so there are few of them.
class Assignment
{
public:
    Assignment(const std::vector<LogRecord>& allRecords, const std::vector<LogSequence>& allSequences)
        : records(allRecords)
        , sequences(allSequences)
        , farthest(allSequences.size())
    {
    }

    bool Assign(size_t next, Position& position)
    {
        if (next >= farthestNext)
        {
            farthestNext = next;
            farthest = position;
        }
        if (next == records.size())
        {
            return IsComplete(position);
        }
        if (!seen.insert(position).second)
        {
            return false;
        }
        for (size_t i = 0; i < sequences.size(); ++i)
        {
            if (position[i] < sequences[i].size() && IsLogged(records[next], sequences[i][position[i]]))
            {
                ++position[i];
                if (Assign(next + 1, position))
                {
                    return true;
                }
                --position[i];
            }
        }
        return false;
    }

    /// The record that fits nowhere, and what was expected in its place.
    std::string DescribeFarthest() const
    {
        std::string text = "Record " + std::to_string(farthestNext) + " is ";
        text += farthestNext < records.size()
                    ? records[farthestNext].tag + " " + records[farthestNext].message
                    : "missing";
        text += "\nOne of these was expected:";
        for (size_t i = 0; i < sequences.size(); ++i)
        {
            if (farthest[i] < sequences[i].size())
            {
                text += "\n    " + sequences[i][farthest[i]];
            }
        }
        return text;
    }

private:
    bool IsComplete(const Position& position) const
    {
        for (size_t i = 0; i < sequences.size(); ++i)
        {
            if (position[i] != sequences[i].size())
            {
                return false;
            }
        }
        return true;
    }

    const std::vector<LogRecord>& records;
    const std::vector<LogSequence>& sequences;
    std::set<Position> seen;
    size_t farthestNext = 0;
    Position farthest;
};
} // namespace

bool IsLogged(const LogRecord& record, const std::string& expected)
{
    const std::string text = record.tag + " " + record.message;
    const size_t before = expected.find('*');
    if (before == std::string::npos)
    {
        return text == expected;
    }
    const size_t after = expected.size() - before - 1;
    return text.size() >= before + after && text.compare(0, before, expected, 0, before) == 0 &&
           text.compare(text.size() - after, after, expected, before + 1, after) == 0;
}

std::string FindLogDifference(const std::vector<LogRecord>& records,
                              const std::vector<LogSequence>& sequences)
{
    Assignment assignment(records, sequences);
    Position position(sequences.size());
    return assignment.Assign(0, position) ? std::string() : assignment.DescribeFarthest();
}
} // namespace Torvane::Testing
