#include "Shared/Serialization/JsonGrammar.h"

#include <stddef.h>
#include <string.h>

namespace Torvane
{
namespace
{
template<typename Record>
Record* TakeRecord(JsonParseState& state)
{
    Record* record = reinterpret_cast<Record*>(state.dom);
    state.dom += sizeof(Record);
    return record;
}

/// Takes a record that is followed by its position, if positions are recorded.
template<typename Plain, typename Placed>
Plain* TakePlaceable(JsonParseState& state)
{
    return IsSet(state, JsonOption::RecordPositions) ? reinterpret_cast<Plain*>(TakeRecord<Placed>(state))
                                                     : TakeRecord<Plain>(state);
}

/// Fills in the position of a record that was taken with `TakePlaceable`.
template<typename Placed, typename Plain>
void Place(const JsonParseState& state, Plain& record)
{
    if (IsSet(state, JsonOption::RecordPositions))
    {
        reinterpret_cast<Placed&>(record).position = {state.offset, state.lineNumber,
                                                      state.offset - state.lineOffset};
    }
}

void PutByte(JsonParseState& state, uint32_t byte)
{
    *state.data++ = static_cast<char>(byte);
}

void PutCharacter(JsonParseState& state, uint32_t character)
{
    if (character < 0x80)
    {
        PutByte(state, character);
        return;
    }
    if (character < 0x800)
    {
        PutByte(state, 0xC0 | character >> 6);
    }
    else
    {
        if (character < 0x10000)
        {
            PutByte(state, 0xE0 | character >> 12);
        }
        else
        {
            PutByte(state, 0xF0 | character >> 18);
            PutByte(state, 0x80 | (character >> 12 & 0x3F));
        }
        PutByte(state, 0x80 | (character >> 6 & 0x3F));
    }
    PutByte(state, 0x80 | (character & 0x3F));
}

/// \return false if the escape isn't as expected.
bool PutUnicodeEscape(JsonParseState& state)
{
    uint32_t unit = 0;
    if (!ReadUnicodeEscape(state, state.offset, unit))
    {
        return false;
    }
    state.offset += unicodeEscapeLength;
    if (IsHighSurrogate(unit))
    {
        uint32_t low = 0;
        if (!ReadUnicodeEscape(state, state.offset, low))
        {
            return false;
        }
        state.offset += unicodeEscapeLength;
        unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    }
    PutCharacter(state, unit);
    return true;
}

/// From a backslash on.
/// \return false if the escape isn't as expected.
bool PutEscape(JsonParseState& state)
{
    const uint8_t kind = state.source[state.offset + 1];
    uint8_t byte = kind;
    switch (kind)
    {
    case 'u':
        return PutUnicodeEscape(state);
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
        ++state.offset; // The line break itself comes next, as a raw one.
        return true;
    default:
        break;
    }
    PutByte(state, byte);
    state.offset += 2;
    return true;
}

void PutQuotedText(JsonParseState& state)
{
    const uint8_t quote = Peek(state);
    for (++state.offset; Peek(state) != quote;)
    {
        const uint8_t character = Peek(state);
        if (character == '\\')
        {
            if (!PutEscape(state))
            {
                return;
            }
            continue;
        }
        if (character == '\n')
        {
            NoteLineFeed(state);
        }
        PutByte(state, character);
        ++state.offset;
    }
    ++state.offset;
}

void PutUnquotedName(JsonParseState& state)
{
    while (!IsAtEnd(state) && IsNameCharacter(Peek(state)))
    {
        PutByte(state, Peek(state));
        ++state.offset;
    }
}

/// A value's string or a member's name, at the state's offset.
JsonString* BuildString(JsonParseState& state)
{
    JsonString* string = TakePlaceable<JsonString, JsonPlacedString>(state);
    Place<JsonPlacedString>(state, *string);
    char* text = state.data;
    if (IsQuote(state, Peek(state)))
    {
        PutQuotedText(state);
    }
    else
    {
        PutUnquotedName(state);
    }
    *string = {text, static_cast<uint32_t>(state.data - text)};
    PutByte(state, '\0');
    return string;
}

JsonNumber* BuildNumber(JsonParseState& state)
{
    JsonNumber* number = TakeRecord<JsonNumber>(state);
    const uint32_t start = state.offset;
    ScanNumber(state);
    const uint32_t length = state.offset - start;
    memcpy(state.data, state.source + start, length);
    *number = {state.data, length};
    state.data += length;
    PutByte(state, '\0');
    return number;
}

void BuildScalar(JsonParseState& state, JsonValue& value)
{
    const uint8_t character = Peek(state);
    if (IsQuote(state, character))
    {
        value = {BuildString(state), JsonType::String};
    }
    else if (IsNumberStart(state, character))
    {
        value = {BuildNumber(state), JsonType::Number};
    }
    else
    {
        value = {nullptr, character == 't'   ? JsonType::True
                          : character == 'f' ? JsonType::False
                                             : JsonType::Null};
        state.offset += value.type == JsonType::False ? 5 : 4;
    }
}

void BuildContainer(JsonParseState& state, JsonValue& value, bool withoutBraces);

/// A value at the state's offset, in a record that follows the ones before it.
JsonValue* BuildValue(JsonParseState& state)
{
    JsonValue* value = TakePlaceable<JsonValue, JsonPlacedValue>(state);
    Place<JsonPlacedValue>(state, *value);
    const uint8_t character = Peek(state);
    if (character == '[' || character == '{')
    {
        BuildContainer(state, *value, false);
    }
    else
    {
        BuildScalar(state, *value);
    }
    return value;
}

/// Goes on to the next member or element.
/// \return false if there is none; the state then stands behind the closing bracket or at the end.
bool GoToNext(JsonParseState& state)
{
    if (SkipJsonWhitespace(state) != 0)
    {
        return false;
    }
    if (Peek(state) == ',')
    {
        ++state.offset;
        if (SkipJsonWhitespace(state) != 0)
        {
            return false;
        }
    }
    if (Peek(state) == '}' || Peek(state) == ']')
    {
        ++state.offset;
        return false;
    }
    return true;
}

/// \param link where the member's record is to be linked.
/// \return the member's own link.
JsonObjectElement** BuildMember(JsonParseState& state, JsonObjectElement** link)
{
    JsonObjectElement* element = TakeRecord<JsonObjectElement>(state);
    *link = element;
    element->name = BuildString(state);
    SkipJsonWhitespace(state);
    ++state.offset;
    SkipJsonWhitespace(state);
    element->value = BuildValue(state);
    element->next = nullptr;
    return &element->next;
}

JsonArrayElement** BuildElement(JsonParseState& state, JsonArrayElement** link)
{
    JsonArrayElement* element = TakeRecord<JsonArrayElement>(state);
    *link = element;
    element->value = BuildValue(state);
    element->next = nullptr;
    return &element->next;
}

void BuildMembers(JsonParseState& state, JsonObject& object)
{
    object = {nullptr, 0};
    JsonObjectElement** link = &object.first;
    while (GoToNext(state))
    {
        link = BuildMember(state, link);
        ++object.count;
    }
}

void BuildElements(JsonParseState& state, JsonArray& array)
{
    array = {nullptr, 0};
    JsonArrayElement** link = &array.first;
    while (GoToNext(state))
    {
        link = BuildElement(state, link);
        ++array.count;
    }
}

void BuildContainer(JsonParseState& state, JsonValue& value, bool withoutBraces)
{
    const bool isObject = withoutBraces || Peek(state) == '{';
    state.offset += withoutBraces ? 0 : 1;
    if (isObject)
    {
        JsonObject* object = TakeRecord<JsonObject>(state);
        value = {object, JsonType::Object};
        BuildMembers(state, *object);
    }
    else
    {
        JsonArray* array = TakeRecord<JsonArray>(state);
        value = {array, JsonType::Array};
        BuildElements(state, *array);
    }
}
} // namespace

void BuildJson(JsonParseState& state, uint32_t withoutBraces, JsonValue& value)
{
    const bool reachedEnd = SkipJsonWhitespace(state) != 0;
    Place<JsonPlacedValue>(state, value);
    if (withoutBraces != 0)
    {
        const bool braces = !reachedEnd && Peek(state) == '{';
        BuildContainer(state, value, !braces);
    }
    else if (Peek(state) == '[' || Peek(state) == '{')
    {
        BuildContainer(state, value, false);
    }
    else
    {
        BuildScalar(state, value);
    }
}
} // namespace Torvane
