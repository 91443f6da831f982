#include "bridge/Recording/FieldText.h"

#include "bridge/Recording/Encoding.h"

#include <nlohmann/json.hpp>

namespace Torvane::Bridge
{
namespace
{
constexpr size_t bytesInLine = 32;

std::string Plural(size_t count, const char* one)
{
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

std::string BytesText(const uint8_t* bytes, size_t size)
{
    const std::string shown = HexFromBytes(bytes, size < bytesInLine ? size : bytesInLine);
    return size <= bytesInLine ? shown : shown + "... (" + Plural(size, "byte") + ")";
}

int DigitsOf(const DecodedField& field)
{
    return field.kind == FieldKind::Address ? 8 : static_cast<int>(field.size < 4 ? field.size * 2 : 8);
}

/// In quotes, with control characters escaped.
std::string Quoted(const std::string& text)
{
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string NumberText(const DecodedField& field)
{
    const bool isHexadecimal = field.kind == FieldKind::Hexadecimal || field.kind == FieldKind::Address;
    std::string text = isHexadecimal ? HexNumber(field.number, DigitsOf(field))
                       : field.kind == FieldKind::SignedNumber
                           ? std::to_string(static_cast<int64_t>(field.number))
                           : std::to_string(field.number);
    for (const NamedValue* value = field.values; value != nullptr && value->name != nullptr; ++value)
    {
        if (value->value == field.number)
        {
            return text + " (" + value->name + ")";
        }
    }
    return text;
}

bool IsWorthSeeing(const DecodedField& field)
{
    return field.kind != FieldKind::Padding && field.kind != FieldKind::Bytes && !field.isAbsent;
}

nlohmann::ordered_json ValueAsJson(const DecodedField& field, const uint8_t* payload)
{
    if (!field.problem.empty())
    {
        return {{"problem", field.problem}};
    }
    if (field.isAbsent)
    {
        return nullptr;
    }
    switch (field.kind)
    {
    case FieldKind::Flag:
    case FieldKind::Number:
        return field.number;
    case FieldKind::SignedNumber:
        return static_cast<int64_t>(field.number);
    case FieldKind::Hexadecimal:
    case FieldKind::Address:
        return HexNumber(field.number, DigitsOf(field));
    case FieldKind::InlineText:
    case FieldKind::InlineWideText:
    case FieldKind::AnsiString:
    case FieldKind::Utf16String:
        return field.text;
    case FieldKind::Record:
        return FieldsAsJson(field.children, payload);
    case FieldKind::Data:
        return field.children.empty()
                   ? nlohmann::ordered_json(HexFromBytes(payload + field.itemOffset, field.itemSize))
                   : FieldsAsJson(field.children, payload);
    case FieldKind::AddressList:
    case FieldKind::NumberList:
    case FieldKind::StringList:
    case FieldKind::RecordList:
    {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const DecodedField& element : field.children)
        {
            list.push_back(ValueAsJson(element, payload));
        }
        return list;
    }
    case FieldKind::Padding:
    case FieldKind::Bytes:
        break;
    }
    return HexFromBytes(payload + field.offset, field.size);
}
} // namespace

std::string FieldText(const DecodedField& field, const uint8_t* payload)
{
    if (!field.problem.empty())
    {
        return "(" + field.problem + ")";
    }
    if (field.isAbsent)
    {
        return "none";
    }
    switch (field.kind)
    {
    case FieldKind::Flag:
    case FieldKind::Number:
    case FieldKind::SignedNumber:
    case FieldKind::Hexadecimal:
    case FieldKind::Address:
        return NumberText(field);
    case FieldKind::InlineText:
    case FieldKind::InlineWideText:
    case FieldKind::AnsiString:
    case FieldKind::Utf16String:
        return Quoted(field.text);
    case FieldKind::Record:
        return "{" + FieldSummary(field.children, payload) + "}";
    case FieldKind::Data:
        return field.children.empty() ? BytesText(payload + field.itemOffset, field.itemSize)
                                      : "{" + FieldSummary(field.children, payload) + "}";
    case FieldKind::AddressList:
        return field.children.size() == 1 ? FieldText(field.children[0], payload)
                                          : std::to_string(field.children.size()) + " addresses";
    case FieldKind::NumberList:
        return Plural(field.children.size(), "number");
    case FieldKind::StringList:
        return Plural(field.children.size(), "string");
    case FieldKind::RecordList:
        return Plural(field.children.size(), "record");
    case FieldKind::Padding:
    case FieldKind::Bytes:
        break;
    }
    return BytesText(payload + field.offset, field.size);
}

std::string FieldSummary(const std::vector<DecodedField>& fields, const uint8_t* payload)
{
    std::string summary;
    for (const DecodedField& field : fields)
    {
        if (IsWorthSeeing(field))
        {
            summary += (summary.empty() ? "" : " ") + field.name + "=" + FieldText(field, payload);
        }
    }
    return summary;
}

nlohmann::ordered_json FieldsAsJson(const std::vector<DecodedField>& fields, const uint8_t* payload)
{
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const DecodedField& field : fields)
    {
        if (field.kind != FieldKind::Padding)
        {
            object[field.name] = ValueAsJson(field, payload);
        }
    }
    return object;
}
} // namespace Torvane::Bridge
