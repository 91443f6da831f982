#include "Shared/Serialization/JsonGrammar.h"

#include <stddef.h>

namespace Torvane
{
namespace
{
/// A state in pass two.
struct JsonBuilder : JsonPass
{
    const char* dataEnd; ///< of the block's texts, or less if the state doesn't tell
    uint32_t valueSize;  ///< of a `JsonValue` with its position, if positions are recorded
    uint32_t stringSize; ///< of a `JsonString`, likewise

    explicit JsonBuilder(const JsonParseState& state)
        : JsonPass(state)
        , dataEnd(state.data + state.dataSize)
        , valueSize(IsSet(state, JsonOption::RecordPositions) ? sizeof(JsonPlacedValue) : sizeof(JsonValue))
        , stringSize(IsSet(state, JsonOption::RecordPositions) ? sizeof(JsonPlacedString)
                                                               : sizeof(JsonString))
    {
    }
};

/// \param size in bytes, of the record and what is taken along with it.
template<typename Record>
Record* TakeRecord(JsonBuilder& builder, uint32_t size = sizeof(Record))
{
    Record* record = reinterpret_cast<Record*>(builder.dom);
    builder.dom += size;
    return record;
}

/// Fills in the position of a record, if positions are recorded.
template<typename Placed, typename Plain>
void Place(const JsonBuilder& builder, const uint8_t* at, Plain& record)
{
    if (IsSet(builder, JsonOption::RecordPositions))
    {
        const uint32_t offset = CountLeft(builder.source, at);
        reinterpret_cast<Placed&>(record).position = {offset, builder.lineNumber,
                                                      offset - builder.lineOffset};
    }
}

/// Whether there are whole groups at both places.
bool CanPutGroup(const uint8_t* at, const uint8_t* end, const char* to, const char* dataEnd)
{
    return CountLeft(at, end) >= jsonGroupSize && dataEnd - to >= ptrdiff_t{jsonGroupSize};
}

/// \return what follows.
char* PutByte(char* to, uint32_t byte)
{
    *to = static_cast<char>(byte);
    return to + 1;
}

char* PutCharacter(char* to, uint32_t character)
{
    if (character < 0x80)
    {
        return PutByte(to, character);
    }
    if (character < 0x800)
    {
        to = PutByte(to, 0xC0 | character >> 6);
    }
    else
    {
        if (character < 0x10000)
        {
            to = PutByte(to, 0xE0 | character >> 12);
        }
        else
        {
            to = PutByte(to, 0xF0 | character >> 18);
            to = PutByte(to, 0x80 | (character >> 12 & 0x3F));
        }
        to = PutByte(to, 0x80 | (character >> 6 & 0x3F));
    }
    return PutByte(to, 0x80 | (character & 0x3F));
}

/// From a backslash on.
/// \return what stands behind the escape, or null if it isn't as expected.
const uint8_t* PutUnicodeEscape(const uint8_t* at, const uint8_t* end, char*& to)
{
    uint32_t unit = 0;
    if (!ReadUnicodeEscape(at, end, unit))
    {
        return nullptr;
    }
    at += unicodeEscapeLength;
    if (IsHighSurrogate(unit))
    {
        uint32_t low = 0;
        if (!ReadUnicodeEscape(at, end, low))
        {
            return nullptr;
        }
        at += unicodeEscapeLength;
        unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    }
    to = PutCharacter(to, unit);
    return at;
}

/// From a backslash on.
/// \return what stands behind the escape, or null if it isn't as expected.
const uint8_t* PutEscape(const uint8_t* at, const uint8_t* end, char*& to)
{
    uint8_t byte = at[1];
    switch (byte)
    {
    case 'u':
        return PutUnicodeEscape(at, end, to);
    case 'b':
        byte = '\b';
        break;
    case 'f':
        byte = '\f';
        break;
    case 'n':
        byte = '\n';
        break;
    case 'r':
        byte = '\r';
        break;
    case 't':
        byte = '\t';
        break;
    case '\n':
    case '\r':
        return at + 1; // The line break itself comes next, as a raw one.
    default:
        break;
    }
    to = PutByte(to, byte);
    return at + 2;
}

/// Puts down what stands between the quotes. Whole groups are written as long as they fit before the end of the texts:
/// what is behind a text is overwritten by the next one.
/// \return what stands behind the string.
const uint8_t* PutQuotedText(JsonBuilder& builder, const uint8_t* at)
{
    const uint8_t* end = builder.end;
    const char* dataEnd = builder.dataEnd;
    char* to = builder.data;
    const uint8_t quote = *at++;
    for (;;)
    {
        if (CanPutGroup(at, end, to, dataEnd))
        {
            const __m128i group = LoadGroup(at);
            const uint32_t stops = StringStops(group, quote);
            const uint32_t plain = stops != 0 ? FirstOf(stops) : jsonGroupSize;
            StoreGroup(to, group);
            at += plain;
            to += plain;
            if (stops == 0)
            {
                continue;
            }
        }
        if (*at == quote)
        {
            ++at;
            break;
        }
        if (*at == '\\')
        {
            const uint8_t* behind = PutEscape(at, end, to);
            if (behind == nullptr)
            {
                break;
            }
            at = behind;
            continue;
        }
        if (*at == '\n')
        {
            NoteLineFeed(builder, at);
        }
        to = PutByte(to, *at++);
    }
    builder.data = to;
    return at;
}

const uint8_t* PutUnquotedName(JsonBuilder& builder, const uint8_t* at)
{
    const uint8_t* end = builder.end;
    char* to = builder.data;
    while (at != end && IsNameCharacter(*at))
    {
        to = PutByte(to, *at++);
    }
    builder.data = to;
    return at;
}

/// Builds a value's string or a member's name in a record that is taken already.
const uint8_t* BuildString(JsonBuilder& builder, const uint8_t* at, JsonString& string)
{
    Place<JsonPlacedString>(builder, at, string);
    char* text = builder.data;
    at = IsQuote(builder, *at) ? PutQuotedText(builder, at) : PutUnquotedName(builder, at);
    string = {text, static_cast<uint32_t>(builder.data - text)};
    builder.data = PutByte(builder.data, '\0');
    return at;
}

/// Puts down a number as a text is put down.
const uint8_t* PutNumber(JsonBuilder& builder, const uint8_t* at)
{
    const uint8_t* end = builder.end;
    const char* dataEnd = builder.dataEnd;
    char* to = builder.data;
    while (CanPutGroup(at, end, to, dataEnd))
    {
        const __m128i group = LoadGroup(at);
        const uint32_t stops = NumberStops(group);
        StoreGroup(to, group);
        if (stops != 0)
        {
            builder.data = to + FirstOf(stops);
            return at + FirstOf(stops);
        }
        at += jsonGroupSize;
        to += jsonGroupSize;
    }
    while (at != end && !IsNumberStop(*at))
    {
        to = PutByte(to, *at++);
    }
    builder.data = to;
    return at;
}

const uint8_t* BuildNumber(JsonBuilder& builder, const uint8_t* at, JsonValue& value)
{
    JsonNumber* number = TakeRecord<JsonNumber>(builder);
    char* text = builder.data;
    at = PutNumber(builder, at);
    *number = {text, static_cast<uint32_t>(builder.data - text)};
    builder.data = PutByte(builder.data, '\0');
    value = {number, JsonType::Number};
    return at;
}

const uint8_t* BuildScalar(JsonBuilder& builder, const uint8_t* at, JsonValue& value)
{
    if (IsQuote(builder, *at))
    {
        JsonString* string = TakeRecord<JsonString>(builder, builder.stringSize);
        value = {string, JsonType::String};
        return BuildString(builder, at, *string);
    }
    if (IsNumberStart(builder, *at))
    {
        return BuildNumber(builder, at, value);
    }
    value = {nullptr, *at == 't' ? JsonType::True : *at == 'f' ? JsonType::False : JsonType::Null};
    return at + (value.type == JsonType::False ? 5 : 4);
}

const uint8_t* BuildMembers(JsonBuilder& builder, const uint8_t* at, JsonValue& value);
const uint8_t* BuildElements(JsonBuilder& builder, const uint8_t* at, JsonValue& value);

/// Builds a value in a record that is taken already.
const uint8_t* BuildValue(JsonBuilder& builder, const uint8_t* at, JsonValue& value)
{
    Place<JsonPlacedValue>(builder, at, value);
    switch (*at)
    {
    case '[':
        return BuildElements(builder, at + 1, value);
    case '{':
        return BuildMembers(builder, at + 1, value);
    default:
        return BuildScalar(builder, at, value);
    }
}

/// Goes on to the next member or element.
/// \param isClosed whether there is none, and the place behind the closing bracket or the end of the text was found.
inline const uint8_t* GoToNext(JsonBuilder& builder, const uint8_t* at, bool& isClosed)
{
    at = SkipWhitespace(builder, at);
    if (at != nullptr && *at == ',')
    {
        at = SkipWhitespace(builder, at + 1);
    }
    isClosed = at == nullptr || *at == '}' || *at == ']';
    return at == nullptr ? PlaceOf(builder) : at + (isClosed ? 1 : 0);
}

/// From behind the brace, if there is one.
const uint8_t* BuildMembers(JsonBuilder& builder, const uint8_t* at, JsonValue& value)
{
    JsonObject* object = TakeRecord<JsonObject>(builder);
    value = {object, JsonType::Object};
    object->first = nullptr;
    uint32_t count = 0;
    JsonObjectElement** link = &object->first;
    for (bool isClosed = false;;)
    {
        at = GoToNext(builder, at, isClosed);
        if (isClosed)
        {
            object->count = count;
            return at;
        }
        JsonObjectElement* element =
            TakeRecord<JsonObjectElement>(builder, sizeof(JsonObjectElement) + builder.stringSize);
        *link = element;
        link = &element->next;
        element->next = nullptr;
        ++count;
        element->name = reinterpret_cast<JsonString*>(element + 1);
        at = BuildString(builder, at, *element->name);
        at = SkipWhitespace(builder, at); // up to the colon
        at = SkipWhitespace(builder, at + 1);
        element->value = TakeRecord<JsonValue>(builder, builder.valueSize);
        at = BuildValue(builder, at, *element->value);
    }
}

/// From behind the bracket.
const uint8_t* BuildElements(JsonBuilder& builder, const uint8_t* at, JsonValue& value)
{
    JsonArray* array = TakeRecord<JsonArray>(builder);
    value = {array, JsonType::Array};
    array->first = nullptr;
    uint32_t count = 0;
    JsonArrayElement** link = &array->first;
    for (bool isClosed = false;;)
    {
        at = GoToNext(builder, at, isClosed);
        if (isClosed)
        {
            array->count = count;
            return at;
        }
        JsonArrayElement* element =
            TakeRecord<JsonArrayElement>(builder, sizeof(JsonArrayElement) + builder.valueSize);
        *link = element;
        link = &element->next;
        element->next = nullptr;
        ++count;
        element->value = reinterpret_cast<JsonValue*>(element + 1);
        at = BuildValue(builder, at, *element->value);
    }
}
} // namespace

void BuildJson(JsonParseState& state, uint32_t withoutBraces, JsonValue& value)
{
    JsonBuilder builder(state);
    const uint8_t* at = SkipWhitespace(builder, PlaceOf(builder));
    const bool reachedEnd = at == nullptr;
    at = reachedEnd ? PlaceOf(builder) : at;
    if (withoutBraces != 0 && (reachedEnd || *at != '{'))
    {
        Place<JsonPlacedValue>(builder, at, value);
        at = BuildMembers(builder, at, value);
    }
    else
    {
        at = BuildValue(builder, at, value);
    }
    state = builder;
    StandAt(state, at);
}
} // namespace Torvane
