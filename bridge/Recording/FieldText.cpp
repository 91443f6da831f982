#include "bridge/Recording/FieldText.h"

#include "bridge/Recording/Encoding.h"

namespace Torvane::Bridge
{
namespace
{
constexpr size_t bytesInLine = 32;

void AppendValueAsJson(std::string& json, const DecodedField& field, const uint8_t* payload);

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

void AppendListAsJson(std::string& json, const std::vector<DecodedField>& elements, const uint8_t* payload)
{
    json.push_back('[');
    for (size_t i = 0; i < elements.size(); ++i)
    {
        json += i == 0 ? "" : ",";
        AppendValueAsJson(json, elements[i], payload);
    }
    json.push_back(']');
}

void AppendBytesAsJson(std::string& json, const uint8_t* bytes, size_t size)
{
    json.push_back('"');
    AppendHex(json, bytes, size);
    json.push_back('"');
}

void AppendValueAsJson(std::string& json, const DecodedField& field, const uint8_t* payload)
{
    if (!field.problem.empty())
    {
        json += "{\"problem\":";
        AppendQuoted(json, field.problem);
        json.push_back('}');
        return;
    }
    if (field.isAbsent)
    {
        json += "null";
        return;
    }
    switch (field.kind)
    {
    case FieldKind::Flag:
    case FieldKind::Number:
        json += std::to_string(field.number);
        break;
    case FieldKind::SignedNumber:
        json += std::to_string(static_cast<int64_t>(field.number));
        break;
    case FieldKind::Hexadecimal:
    case FieldKind::Address:
        json += '"' + HexNumber(field.number, DigitsOf(field)) + '"';
        break;
    case FieldKind::InlineText:
    case FieldKind::InlineWideText:
    case FieldKind::AnsiString:
    case FieldKind::Utf16String:
        AppendQuoted(json, field.text);
        break;
    case FieldKind::Record:
        AppendFieldsAsJson(json, field.children, payload);
        break;
    case FieldKind::Data:
        if (field.children.empty())
        {
            AppendBytesAsJson(json, payload + field.itemOffset, field.itemSize);
            break;
        }
        AppendFieldsAsJson(json, field.children, payload);
        break;
    case FieldKind::AddressList:
    case FieldKind::NumberList:
    case FieldKind::StringList:
    case FieldKind::RecordList:
        AppendListAsJson(json, field.children, payload);
        break;
    case FieldKind::Padding:
    case FieldKind::Bytes:
        AppendBytesAsJson(json, payload + field.offset, field.size);
        break;
    }
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
    {
        std::string quoted;
        AppendQuoted(quoted, field.text);
        return quoted;
    }
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

void AppendFieldsAsJson(std::string& json, const std::vector<DecodedField>& fields, const uint8_t* payload)
{
    json.push_back('{');
    bool isFirst = true;
    for (const DecodedField& field : fields)
    {
        if (field.kind == FieldKind::Padding)
        {
            continue;
        }
        json += isFirst ? "\"" : ",\"";
        json += field.name;
        json += "\":";
        AppendValueAsJson(json, field, payload);
        isFirst = false;
    }
    json.push_back('}');
}
} // namespace Torvane::Bridge
