#pragma once

/// \file
/// Macros for the rows of the tables of fields, and their compile-time checks; included by these tables only.
///
/// Name, offset and size of a row are taken from the member. A table has to cover its record without gaps: a member that
/// is added, moved or renamed in the record but not in the table doesn't compile.

#include "bridge/Recording/BlobLayout.h"

#include <type_traits>

namespace Torvane::Bridge
{
/// Whether a member of type `Member` can be of this kind.
template<typename Member>
constexpr bool FitsKind(FieldKind kind)
{
    using Plain = std::remove_all_extents_t<Member>;
    constexpr bool isNumber = std::is_unsigned_v<Member> || std::is_enum_v<Member>;
    switch (kind)
    {
    case FieldKind::Padding:
    case FieldKind::Bytes:
        return std::is_same_v<Plain, uint8_t> || std::is_same_v<Member, uint32_t>;
    case FieldKind::Flag:
        return std::is_same_v<Member, uint8_t>;
    case FieldKind::Number:
    case FieldKind::Hexadecimal:
        return isNumber;
    case FieldKind::SignedNumber:
        return std::is_same_v<Member, int32_t>;
    case FieldKind::Address:
        return std::is_same_v<Member, AddressSlot>;
    case FieldKind::InlineText:
        return std::is_same_v<Member, InlineText>;
    case FieldKind::InlineWideText:
        return std::is_same_v<Member, InlineWideText>;
    case FieldKind::Record:
        return std::is_class_v<Member>;
    case FieldKind::AnsiString:
    case FieldKind::Utf16String:
    case FieldKind::Data:
    case FieldKind::AddressList:
        return std::is_same_v<Member, RelativeOffset>;
    case FieldKind::NumberList:
    case FieldKind::StringList:
    case FieldKind::RecordList:
        return std::is_same_v<Member, RelativeArray>;
    }
    return false;
}

template<typename Member, FieldKind kind>
constexpr FieldLayout MakeField(const char* name, size_t offset, const RecordLayout* elements = nullptr,
                                ItemCount count = {}, const NamedValue* values = nullptr)
{
    static_assert(FitsKind<Member>(kind), "The member has another type.");
    static_assert(sizeof(Member) <= UINT16_MAX);
    return {
        name,  static_cast<uint16_t>(offset), static_cast<uint16_t>(sizeof(Member)), kind, elements, count,
        values};
}

/// Whether the rows are in order, without gaps, up to the end of the record.
constexpr bool Covers(const FieldLayout* fields, size_t count, size_t recordSize)
{
    size_t position = 0;
    for (size_t i = 0; i < count; ++i)
    {
        if (fields[i].offset != position)
        {
            return false;
        }
        position += fields[i].size;
    }
    return position == recordSize;
}

// One row: the kind, the record, its member, and what else the kind needs.
#define TORVANE_FIELD(kind, record, member, ...)                                                \
    ::Torvane::Bridge::MakeField<decltype(record::member), ::Torvane::Bridge::FieldKind::kind>( \
        #member, offsetof(record, member), ##__VA_ARGS__)

// The member that counts what another one refers to.
#define TORVANE_FACTOR(record, member)                   \
    {                                                    \
        offsetof(record, member), sizeof(record::member) \
    }

// Defines `layout` from `rows`, which have to cover the record.
#define TORVANE_LAYOUT(layout, record, rows)                                                         \
    static_assert(::Torvane::Bridge::Covers(rows, sizeof(rows) / sizeof((rows)[0]), sizeof(record)), \
                  "The rows don't cover " #record ".");                                              \
    inline constexpr ::Torvane::Bridge::RecordLayout layout = {#record, sizeof(record), rows,        \
                                                               sizeof(rows) / sizeof((rows)[0])}
} // namespace Torvane::Bridge
