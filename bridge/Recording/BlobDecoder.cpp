#include "bridge/Recording/BlobDecoder.h"

#include "bridge/Recording/Encoding.h"

namespace Torvane::Bridge
{
namespace
{
constexpr char outside[] = "refers to data outside of the payload";
constexpr char missing[] = "the payload ends before its end";

bool IsReference(FieldKind kind)
{
    return kind >= FieldKind::AnsiString;
}

class Decoder
{
public:
    Decoder(const uint8_t* payloadBytes, size_t payloadSize)
        : payload(payloadBytes)
        , end(payloadSize)
    {
    }

    std::vector<DecodedField> Record(const RecordLayout& layout, size_t base) const
    {
        std::vector<DecodedField> fields;
        fields.reserve(layout.fieldCount);
        for (const FieldLayout& field : layout)
        {
            fields.push_back(Field(field, base));
        }
        return fields;
    }

private:
    uint64_t NumberAt(size_t offset, size_t size) const
    {
        uint64_t number = 0;
        for (size_t i = 0; i < size; ++i)
        {
            number |= uint64_t(payload[offset + i]) << (8 * i);
        }
        return number;
    }

    DecodedField Field(const FieldLayout& layout, size_t base) const
    {
        DecodedField field;
        field.name = layout.name;
        field.kind = layout.kind;
        field.values = layout.values;
        field.offset = base + layout.offset;
        field.itemOffset = field.offset;
        if (field.offset > end || end - field.offset < layout.size)
        {
            field.size = field.offset < end ? end - field.offset : 0;
            field.problem = missing;
            return field;
        }
        field.size = layout.size;
        if (!IsReference(layout.kind))
        {
            ReadInPlace(field, layout);
            return field;
        }
        const uint64_t distance = NumberAt(field.offset, 4);
        if (distance == 0)
        {
            field.isAbsent = true;
        }
        else if (distance > end - field.offset)
        {
            field.problem = outside;
        }
        else
        {
            field.itemOffset = field.offset + static_cast<size_t>(distance);
            Follow(field, layout, base);
        }
        return field;
    }

    void ReadInPlace(DecodedField& field, const FieldLayout& layout) const
    {
        switch (layout.kind)
        {
        case FieldKind::Flag:
        case FieldKind::Number:
        case FieldKind::Hexadecimal:
        case FieldKind::Address:
            field.number = NumberAt(field.offset, field.size);
            break;
        case FieldKind::SignedNumber:
            field.number = static_cast<uint64_t>(
                int64_t(static_cast<int32_t>(static_cast<uint32_t>(NumberAt(field.offset, field.size)))));
            break;
        case FieldKind::InlineText:
        case FieldKind::InlineWideText:
            ReadInlineText(field, layout.kind == FieldKind::InlineText ? 1 : 2);
            break;
        case FieldKind::Record:
            field.children = Record(*layout.elements, field.offset);
            break;
        default:
            break;
        }
    }

    void ReadInlineText(DecodedField& field, size_t unitSize) const
    {
        const uint64_t length = NumberAt(field.offset, 4);
        const size_t capacity = (field.size - 4) / unitSize;
        if (length > capacity)
        {
            field.problem = "the length " + std::to_string(length) + " exceeds the string's capacity";
            return;
        }
        field.text = TextAt(field.offset + 4, static_cast<size_t>(length), unitSize);
    }

    std::string TextAt(size_t offset, size_t length, size_t unitSize) const
    {
        return unitSize == 2
                   ? Utf8FromUtf16(payload + offset, length)
                   : ValidUtf8(std::string(reinterpret_cast<const char*>(payload + offset), length));
    }

    void Follow(DecodedField& field, const FieldLayout& layout, size_t base) const
    {
        switch (layout.kind)
        {
        case FieldKind::AnsiString:
            ReadText(field, 1);
            break;
        case FieldKind::Utf16String:
            ReadText(field, 2);
            break;
        case FieldKind::Data:
            if (Take(field, CountOf(layout.count, base), 1) && layout.elements != nullptr)
            {
                field.children = Record(*layout.elements, field.itemOffset);
            }
            break;
        case FieldKind::AddressList:
            ReadNumbers(field, CountOf(layout.count, base), FieldKind::Address);
            break;
        case FieldKind::NumberList:
            ReadNumbers(field, ArrayCount(field), FieldKind::Number);
            break;
        case FieldKind::StringList:
            ReadStrings(field);
            break;
        case FieldKind::RecordList:
            ReadRecords(field, *layout.elements);
            break;
        default:
            break;
        }
    }

    uint64_t ArrayCount(const DecodedField& field) const
    {
        return NumberAt(field.offset + offsetof(RelativeArray, count), sizeof(RelativeArray::count));
    }

    /// The product of the factors; UINT64_MAX if it overflows or a factor is missing.
    uint64_t CountOf(const ItemCount& count, size_t base) const
    {
        if (count.constant != 0)
        {
            return count.constant;
        }
        uint64_t product = 1;
        for (const ItemCount::Factor& factor : count.factors)
        {
            if (factor.size == 0)
            {
                continue;
            }
            const size_t offset = base + factor.offset;
            if (offset > end || end - offset < factor.size)
            {
                return UINT64_MAX;
            }
            const uint64_t number = NumberAt(offset, factor.size);
            product = number != 0 && product > UINT64_MAX / number ? UINT64_MAX : product * number;
        }
        return product;
    }

    /// Whether the payload contains the `count` elements that the field refers to. If so, they become the item.
    bool Take(DecodedField& field, uint64_t count, size_t elementSize) const
    {
        if (count > (end - field.itemOffset) / elementSize)
        {
            field.problem = outside;
            field.itemOffset = field.offset;
            return false;
        }
        field.itemSize = static_cast<size_t>(count) * elementSize;
        return true;
    }

    void ReadText(DecodedField& field, size_t unitSize) const
    {
        size_t length = 0;
        for (; (end - field.itemOffset) / unitSize > length; ++length)
        {
            if (NumberAt(field.itemOffset + length * unitSize, unitSize) == 0)
            {
                field.itemSize = (length + 1) * unitSize;
                field.text = TextAt(field.itemOffset, length, unitSize);
                return;
            }
        }
        field.problem = "the string has no terminator";
        field.itemOffset = field.offset;
    }

    static DecodedField Element(size_t index, FieldKind kind, size_t offset, size_t size)
    {
        DecodedField element;
        element.name = "[" + std::to_string(index) + "]";
        element.kind = kind;
        element.offset = offset;
        element.size = size;
        element.itemOffset = offset;
        return element;
    }

    void ReadNumbers(DecodedField& field, uint64_t count, FieldKind kind) const
    {
        constexpr size_t numberSize = 8;
        if (!Take(field, count, numberSize))
        {
            return;
        }
        for (size_t i = 0; i < count; ++i)
        {
            field.children.push_back(Element(i, kind, field.itemOffset + i * numberSize, numberSize));
            field.children.back().number = NumberAt(field.children.back().offset, numberSize);
        }
    }

    void ReadStrings(DecodedField& field) const
    {
        const uint64_t count = ArrayCount(field);
        if (!Take(field, count, sizeof(RelativeOffset)))
        {
            return;
        }
        const FieldLayout entry = {"", 0,      sizeof(RelativeOffset), FieldKind::AnsiString, nullptr,
                                   {}, nullptr};
        size_t textSize = 0;
        for (size_t i = 0; i < count; ++i)
        {
            field.children.push_back(Field(entry, field.itemOffset + i * sizeof(RelativeOffset)));
            field.children.back().name = "[" + std::to_string(i) + "]";
            textSize += field.children.back().itemSize;
            if (textSize > end)
            {
                // Strings that share bytes could otherwise turn a small payload into any amount of output.
                field.problem = "its strings are longer than the payload";
                field.children.clear();
                field.itemOffset = field.offset;
                field.itemSize = 0;
                return;
            }
        }
    }

    void ReadRecords(DecodedField& field, const RecordLayout& layout) const
    {
        const uint64_t count = ArrayCount(field);
        if (!Take(field, count, layout.size))
        {
            return;
        }
        for (size_t i = 0; i < count; ++i)
        {
            const size_t offset = field.itemOffset + i * layout.size;
            field.children.push_back(Element(i, FieldKind::Record, offset, layout.size));
            field.children.back().children = Record(layout, offset);
        }
    }

    const uint8_t* payload;
    size_t end;
};
} // namespace

std::vector<DecodedField> DecodePayload(BlobType type, const uint8_t* payload, size_t size)
{
    const BlobLayout* layout = FindBlobLayout(type);
    if (layout != nullptr && layout->fixed != nullptr)
    {
        return Decoder(payload, size).Record(*layout->fixed, 0);
    }
    std::vector<DecodedField> fields;
    if (size != 0)
    {
        DecodedField field;
        field.name = "payload";
        field.size = size;
        fields.push_back(field);
    }
    return fields;
}

const DecodedField* FindField(const std::vector<DecodedField>& fields, const std::string& name)
{
    for (const DecodedField& field : fields)
    {
        if (field.name == name)
        {
            return &field;
        }
    }
    return nullptr;
}
} // namespace Torvane::Bridge
