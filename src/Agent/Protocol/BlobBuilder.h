#pragma once

/// \file
/// The one way in which Blobs are built: size, one block, fixed part, items. Any thread; each builder belongs to
/// the thread that made it.

#include "Agent/Protocol/Blob.h"
#include "Shared/Memory/OwnedAllocation.h"

namespace Torvane
{
/// A whole Blob, header and payload in one block, with its only owner.
using OwnedBlob = OwnedAllocation;

/// Bytes of a string with its terminator.
uint32_t MeasureText(const char* text);
uint32_t MeasureText(const wchar_t* text);

/// Lays a fixed part and its items into one block of the memory system, in the order in which the items are appended.
class BlobBuilder
{
public:
    /// \param fixedSize and \param itemsSize in bytes, without the header. The fixed part is cleared.
    BlobBuilder(BlobType type, uint32_t fixedSize, uint32_t itemsSize);

    /// Copies `size` bytes to the end of what is there, and lets `field`, which must lie in the fixed part, refer to
    /// them. With a null `data` the bytes are left for the caller to fill. \return the item in the block.
    void* Append(RelativeOffset& field, const void* data, uint32_t size);

    /// Appends `count` elements of `elementSize` bytes each. An empty array gets its position and count 0.
    void AppendArray(RelativeArray& field, const void* elements, uint32_t count, uint32_t elementSize);

    /// Appends a string with its terminator.
    void AppendText(RelativeOffset& field, const char* text);
    void AppendText(RelativeOffset& field, const wchar_t* text);

    /// First byte of the fixed part.
    void* Payload() const;

    /// Hands the Blob over. The builder is empty afterwards.
    OwnedBlob Finish();

private:
    OwnedBlob block;
    uint8_t* next;
};

/// A builder whose fixed part is a wire record that knows its number.
template<typename Record>
class RecordBuilder : public BlobBuilder
{
public:
    explicit RecordBuilder(uint32_t itemsSize = 0)
        : BlobBuilder(Record::type, sizeof(Record), itemsSize)
    {
    }

    Record& Fixed() const
    {
        return *static_cast<Record*>(Payload());
    }
};

/// A `LogNarrow` Blob.
OwnedBlob BuildLogBlob(BlobLogLevel level, const char* text);

/// A `LogWide` Blob.
OwnedBlob BuildLogBlob(BlobLogLevel level, const wchar_t* text);

/// `ScheduleReload`, `ResumeHeldThreads` or `SuspendHeldThreads`, whose four bytes are left unwritten.
OwnedBlob BuildUnwrittenBlob(BlobType type);
} // namespace Torvane
