#pragma once

/// \file
/// Describes the payload of each Blob by tables of the wire records' fields; constant data, any thread, any platform.

#include "bridge/BlobName.h"

#include <stddef.h>
#include <stdint.h>

namespace Torvane::Bridge
{
/// How the bytes of a field are interpreted.
enum class FieldKind : uint8_t
{
    Padding,        ///< without meaning: 0, or left unwritten
    Bytes,          ///< not read by the Agent, or in a format of their own
    Flag,           ///< a byte
    Number,         ///< unsigned, of any size
    SignedNumber,   ///< 32 bits
    Hexadecimal,    ///< unsigned, of any size: offsets, flags, values that are returned unchanged
    Address,        ///< an address or a handle of the Agent's process, 64 bits
    InlineText,     ///< `InlineText`
    InlineWideText, ///< `InlineWideText`
    Record,         ///< a record in place: `elements`
    AnsiString,     ///< `RelativeOffset` to characters up to a 0
    Utf16String,    ///< `RelativeOffset` to UTF-16 units up to a 0
    Data, ///< `RelativeOffset` to as many bytes as `count` specifies; if `elements` is set, to such a record
    AddressList, ///< `RelativeOffset` to as many address slots as `count` specifies
    NumberList,  ///< `RelativeArray` of u64
    StringList,  ///< `RelativeArray` of `RelativeOffset`, each to characters up to a 0
    RecordList,  ///< `RelativeArray` of `elements`
};

/// The name of a kind in listings: "ANSI string".
const char* KindName(FieldKind kind);

/// A name for one value of a number, or for one bit.
struct NamedValue
{
    uint32_t value;
    const char* name;
};

struct RecordLayout;

/// The count of what a `RelativeOffset` refers to: a constant, or the product of one or two other fields of its record.
struct ItemCount
{
    struct Factor
    {
        uint16_t offset;
        uint16_t size; ///< bytes; 0 for no factor
    };

    uint32_t constant;
    Factor factors[2];
};

/// One field of a record.
struct FieldLayout
{
    const char* name; ///< as in `Blob.h`
    uint16_t offset;  ///< bytes from the start of the record
    uint16_t size;    ///< bytes
    FieldKind kind;
    const RecordLayout* elements;
    ItemCount count;
    const NamedValue* values; ///< up to one without a name; null if the values have no names
};

/// Fields in ascending order that cover a record without a gap.
struct RecordLayout
{
    const char* name; ///< as in `Blob.h`
    uint32_t size;    ///< bytes
    const FieldLayout* fields;
    size_t fieldCount;

    const FieldLayout* begin() const
    {
        return fields;
    }

    const FieldLayout* end() const
    {
        return fields + fieldCount;
    }
};

/// Who sends a Blob.
enum class BlobSender : uint8_t
{
    Agent,
    Bridge,
    Both,
};

struct BlobLayout
{
    BlobType type;
    const char* name; ///< as in `BlobType`
    BlobSender sender;
    const RecordLayout* fixed; ///< null for a Blob without payload
};

/// All Blobs that the Agent sends or accepts, in ascending order of their numbers.
struct BlobLayoutList
{
    const BlobLayout* layouts;
    size_t count;

    const BlobLayout* begin() const
    {
        return layouts;
    }

    const BlobLayout* end() const
    {
        return layouts + count;
    }
};
BlobLayoutList AllBlobLayouts();

/// Null for a number that isn't in `BlobType`.
const BlobLayout* FindBlobLayout(BlobType type);
} // namespace Torvane::Bridge
