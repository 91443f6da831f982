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
/// Collects the items of a Blob whose fixed part is known by its size alone. See `BlobWriter`.
class BlobItems
{
public:
    /// Adds an item for the field at `fieldOffset` of the fixed part. The order of calls doesn't matter.
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

/// Builds one Blob: set the members of `fixed`, add an item for each field that refers to data, call `Finish`.
///
///     BlobWriter<WriteMemoryBlob> blob;
///     blob.fixed.elementSize = 5;
///     blob.fixed.elementCount = 1;
///     blob.List(&WriteMemoryBlob::addresses, addresses);
///     blob.List(&WriteMemoryBlob::data, bytes);
///     link.Send(blob.Finish());
///
/// `fixed` is zero-initialized. A field without an item keeps the value that it has in `fixed`.
template<typename Record>
class BlobWriter
{
public:
    Record fixed = {};

    /// A string, written with its terminator.
    void String(RelativeOffset Record::*field, const std::string& string)
    {
        items.Add(OffsetOf(field), string.c_str(), string.size() + 1);
    }

    void String(RelativeOffset Record::*field, const std::wstring& string)
    {
        items.Add(OffsetOf(field), string.c_str(), (string.size() + 1) * sizeof(wchar_t));
    }

    /// Elements, back to back. For a `RelativeArray`, the count is set too.
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

    /// As `List`, with an explicit count: for elements that are followed by the data that they refer to.
    void Data(RelativeArray Record::*field, const std::vector<uint8_t>& data, uint32_t count)
    {
        items.Add(OffsetOf(field), data.data(), data.size());
        (fixed.*field).count = count;
    }

    /// The whole Blob as it is sent, header included.
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
