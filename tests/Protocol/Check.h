#pragma once

/// \file
/// What the program that is made of the tables of docs/protocol.md is written in; for its main thread.

#include "Agent/Protocol/Blob.h"

#include <stdio.h>

using namespace Torvane;

inline int differences = 0;
inline int comparisons = 0;

inline void Check(const char* what, size_t actual, size_t documented)
{
    ++comparisons;
    if (actual != documented)
    {
        ++differences;
        printf("%s: the document says %zu, the record has %zu\n", what, documented, actual);
    }
}

template<typename Record>
auto TypeOf(int) -> decltype(static_cast<uint32_t>(Record::type))
{
    return static_cast<uint32_t>(Record::type);
}

/// A record that several Blobs share has none.
template<typename Record>
uint32_t TypeOf(...)
{
    return blobTypeCount;
}

/// Whether a record that belongs to one Blob belongs to that of the heading.
template<typename Record>
void CheckType(const char* what, uint32_t documented)
{
    if (TypeOf<Record>(0) != blobTypeCount)
    {
        Check(what, TypeOf<Record>(0), documented);
    }
}

inline int Report()
{
    printf("%d comparisons, %d differences\n", comparisons, differences);
    return differences == 0 && comparisons != 0 ? 0 : 1;
}
