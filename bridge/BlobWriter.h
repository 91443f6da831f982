#pragma once

/// \file
/// Builds a Blob with its variable items; each writer belongs to one thread.

#include "Agent/Protocol/Blob.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <string>
#include <utility>
#include <vector>

namespace Torvane::Bridge
{
/// Fixed part and items of a Blob of which only the size of the fixed part is known. See `BlobWriter`.
class BlobItems
{
public:
    /// Notes an item for the field at `fieldOffset` of the fixed part. The order of calls doesn't matter.
    void Add(size_t fieldOffset, const void* data, size_t size);

    /// Header, fixed part and items, in ascending order of their fields, with each field's offset filled in.
    std::vector<uint8_t> Finish(BlobType type, const void* fixed, size_t fixedSize) const;

private:
    struct Item
    {
        size_t fieldOffset;
        std::vector<uint8_t> data;
    };

    std::vector<Item> items;
};

/// Builds one Blob: fill `fixed`, give each field its item, `Finish`.
///
///     BlobWriter<WriteMemoryBlob> blob;
///     blob.fixed.elementSize = 5;
///     blob.fixed.elementCount = 1;
///     blob.List(&WriteMemoryBlob::addresses, addresses);
///     blob.List(&WriteMemoryBlob::data, bytes);
///     link.Send(blob.Finish());
///
/// A field that gets no item keeps what `fixed` holds, which is 0 at first. All else starts as 0 too.
template<typename Record>
class BlobWriter
{
public:
    Record fixed = {};

    /// The text and its terminator.
    void String(RelativeOffset Record::*field, const std::string& text)
    {
        items.Add(OffsetOf(field), text.c_str(), text.size() + 1);
    }

    void String(RelativeOffset Record::*field, const std::wstring& text)
    {
        items.Add(OffsetOf(field), text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }

    /// Elements back to back. A field that is a `RelativeArray` gets their count as well.
    template<typename Element>
    void List(RelativeOffset Record::*field, const std::vector<Element>& elements)
    {
        items.Add(OffsetOf(field), elements.data(), elements.size() * sizeof(Element));
    }

    template<typename Element>
    void List(RelativeArray Record::*field, const std::vector<Element>& elements)
    {
        static_assert(offsetof(RelativeArray, offset) == 0);
        items.Add(OffsetOf(field), elements.data(), elements.size() * sizeof(Element));
        (fixed.*field).count = static_cast<uint32_t>(elements.size());
    }

    /// As `List`, with a count of its own: for elements that are followed by what they refer to.
    void Data(RelativeArray Record::*field, const std::vector<uint8_t>& data, uint32_t count)
    {
        items.Add(OffsetOf(field), data.data(), data.size());
        (fixed.*field).count = count;
    }

    /// The whole Blob as it goes over the pipe.
    std::vector<uint8_t> Finish(BlobType type = Record::type) const
    {
        return items.Finish(type, &fixed, sizeof(Record));
    }

private:
    template<typename Field>
    size_t OffsetOf(Field Record::*field) const
    {
        return static_cast<size_t>(reinterpret_cast<const uint8_t*>(&(fixed.*field)) -
                                   reinterpret_cast<const uint8_t*>(&fixed));
    }

    BlobItems items;
};

/// A Blob with the given payload, which may be empty.
std::vector<uint8_t> MakeBlob(BlobType type, const void* payload, size_t size);
} // namespace Torvane::Bridge
