#pragma once

/// \file
/// The JSON grammar of strings, values and containers, once for both passes; any thread, each with its own state.
/// JsonGrammar.h says how positions and failures are passed on.
///
/// A `Pass` derives from `JsonPass` and says what becomes of what is read:
///
/// - `builds`: whether it has a tree, and so `Take` returns records. They are null otherwise.
/// - `Take<Record>(size)`: the next record.
/// - `Place(at, record)`: gives a record its position, if positions are recorded.
/// - `SetValue(value, payload, type)`.
/// - `StartText()` and `EndText(text, record)`: a string or number begins, and ends as this record's.
/// - `Text::Put(byte)` and `Text::PutUpTo(stops, at, end)`: it continues with a byte, or with the source up to a stop.

#include "Shared/Serialization/JsonGrammar.h"

namespace Torvane
{
/// Whether a string begins with this character.
inline bool IsQuote(const JsonPass& pass, int32_t character)
{
    return character == '"' || (character == '\'' && IsSet(pass, JsonOption::SingleQuotes));
}

inline bool IsNameCharacter(int32_t character)
{
    const int32_t lower = character | 0x20;
    return IsDigit(character) || (lower >= 'a' && lower <= 'z') || character == '_';
}

/// Puts a character as UTF-8.
template<typename Text>
void PutCharacter(Text& text, uint32_t character)
{
    if (character < 0x80)
    {
        text.Put(character);
        return;
    }
    uint32_t shift = character < 0x800 ? 6 : character < 0x10000 ? 12 : 18;
    const uint32_t lengthBits = shift == 6 ? 0xC0 : shift == 12 ? 0xE0 : 0xF0;
    text.Put(lengthBits | character >> shift);
    while (shift != 0)
    {
        shift -= 6;
        text.Put(0x80 | (character >> shift & 0x3F));
    }
}

/// What a character after a backslash stands for; 0 if that is nothing or more than one byte.
struct JsonEscapes
{
    char of[256] = {};

    constexpr JsonEscapes()
    {
        for (const char* pair = "\"\"//\\\\b\bf\fn\nr\rt\t"; *pair != '\0'; pair += 2)
        {
            of[static_cast<uint8_t>(pair[0])] = pair[1];
        }
    }
};
inline constexpr JsonEscapes jsonEscapes;

/// \param at where the backslash is.
template<typename Text>
const uint8_t* ReadEscape(JsonPass& pass, const uint8_t* at, Text& text)
{
    if (CountLeft(at, pass.end) < 2)
    {
        return Fail(pass, pass.end, JsonError::UnexpectedEnd);
    }
    const char byte = jsonEscapes.of[at[1]];
    if (byte != '\0')
    {
        text.Put(static_cast<uint8_t>(byte));
        return at + 2;
    }
    if ((at[1] == '\n' || at[1] == '\r') && IsSet(pass, JsonOption::LineBreaksInStrings))
    {
        return at + 1; // The line break itself is read next, as a raw one.
    }
    const uint32_t character = DecodeUnicodeEscape(at, pass.end);
    if (character == noCharacter)
    {
        return Fail(pass, at, JsonError::BadEscape);
    }
    PutCharacter(text, character);
    return at + (character < 0x10000 ? 1 : 2) * unicodeEscapeLength;
}

/// A control character up to the carriage return, unescaped.
template<typename Text>
const uint8_t* ReadControl(JsonPass& pass, const uint8_t* at, Text& text)
{
    if (*at == '\0' || *at == '\t')
    {
        return Fail(pass, at, JsonError::BadString);
    }
    if (*at == '\n' || *at == '\r')
    {
        if (!IsSet(pass, JsonOption::LineBreaksInStrings))
        {
            return Fail(pass, at, JsonError::BadEscape);
        }
        if (*at == '\n')
        {
            CountLineFeed(pass, at);
        }
    }
    text.Put(*at);
    return at + 1;
}

/// A string in quotes.
template<typename Pass>
const uint8_t* ReadString(Pass& pass, const uint8_t* at, JsonString* string)
{
    const uint8_t quote = *at;
    if (!IsQuote(pass, quote))
    {
        return Fail(pass, at, JsonError::QuoteExpected);
    }
    pass.Place(at, string);
    const __m128i quotes = quote == '"' ? _mm_set1_epi8('"') : _mm_set1_epi8('\'');
    const auto stops = [quotes](__m128i group) {
        return StringStops(group, quotes);
    };
    auto text = pass.StartText();
    for (++at; at != nullptr;)
    {
        at = text.PutUpTo(stops, at, pass.end);
        if (at == pass.end)
        {
            return Fail(pass, at, JsonError::UnexpectedEnd);
        }
        if (*at == quote)
        {
            pass.EndText(text, string);
            return at + 1;
        }
        at = *at == '\\' ? ReadEscape(pass, at, text) : ReadControl(pass, at, text);
    }
    return nullptr;
}

template<typename Pass>
const uint8_t* ReadUnquotedName(Pass& pass, const uint8_t* at, JsonString* name)
{
    pass.Place(at, name);
    const uint8_t* start = at;
    auto text = pass.StartText();
    for (; IsNameCharacter(CharacterAt(pass, at)); ++at)
    {
        text.Put(*at);
    }
    pass.EndText(text, name);
    return at != start ? at : Fail(pass, at, JsonError::BadString);
}

/// A member's name and its colon, up to its value.
template<typename Pass>
const uint8_t* ReadName(Pass& pass, const uint8_t* at, JsonObjectElement* member)
{
    JsonString* name = pass.template Take<JsonString>(pass.stringSize);
    if constexpr (Pass::builds)
    {
        member->name = name;
    }
    if (at == pass.end)
    {
        return Fail(pass, at, JsonError::UnexpectedEnd);
    }
    const bool unquoted = IsSet(pass, JsonOption::UnquotedNames) && !IsQuote(pass, *at);
    at = unquoted ? ReadUnquotedName(pass, at, name) : ReadString(pass, at, name);
    if (at == nullptr)
    {
        pass.error = JsonError::BadString;
        return nullptr;
    }
    at = SkipWhitespace(pass, at);
    const int32_t separator = CharacterAt(pass, at);
    if (separator != ':' && !(separator == '=' && IsSet(pass, JsonOption::EqualsSign)))
    {
        return Fail(pass, at, JsonError::ColonExpected);
    }
    return SkipWhitespace(pass, at + 1);
}

template<typename Pass>
const uint8_t* ReadValue(Pass& pass, const uint8_t* at, JsonValue* value);

/// The members of an object or the elements of an array, from after the opening bracket to after the closing one.
/// \tparam close the closing bracket, or `endOfText` for an object without braces.
template<typename Container, typename Item, int32_t close, typename Pass>
const uint8_t* ReadItems(Pass& pass, const uint8_t* at, JsonValue* value)
{
    Container* container = pass.template Take<Container>(sizeof(Container));
    pass.SetValue(value, container, close == ']' ? JsonType::Array : JsonType::Object);
    Item** link = nullptr;
    if constexpr (Pass::builds)
    {
        *container = {nullptr, 0};
        link = &container->first;
    }
    at = SkipWhitespace(pass, at);
    for (bool canClose = true; !canClose || CharacterAt(pass, at) != close;)
    {
        Item* item = pass.template Take<Item>(sizeof(Item));
        if constexpr (close != ']')
        {
            at = ReadName(pass, at, item);
            if (at == nullptr)
            {
                return nullptr;
            }
        }
        JsonValue* itemValue = pass.template Take<JsonValue>(pass.valueSize);
        if constexpr (Pass::builds)
        {
            item->value = itemValue;
            item->next = nullptr;
            *link = item;
            link = &item->next;
            ++container->count;
        }
        at = ReadValue(pass, at, itemValue);
        if (at == nullptr)
        {
            return nullptr;
        }
        at = SkipWhitespace(pass, at);
        const bool comma = CharacterAt(pass, at) == ',';
        canClose = !comma || IsSet(pass, JsonOption::TrailingComma);
        if (comma)
        {
            at = SkipWhitespace(pass, at + 1);
        }
        else if (CharacterAt(pass, at) != close && !IsSet(pass, JsonOption::NoCommas))
        {
            return Fail(pass, at, JsonError::CommaExpected);
        }
    }
    return at + (close != endOfText ? 1 : 0);
}

template<typename Pass>
const uint8_t* ReadContainer(Pass& pass, const uint8_t* at, JsonValue* value)
{
    switch (*at)
    {
    case '{':
        return ReadItems<JsonObject, JsonObjectElement, '}'>(pass, at + 1, value);
    case '[':
        return ReadItems<JsonArray, JsonArrayElement, ']'>(pass, at + 1, value);
    default:
        return Fail(pass, at, JsonError::BracketExpected);
    }
}

template<typename Pass>
const uint8_t* ReadNumber(Pass& pass, const uint8_t* at, JsonNumber* number)
{
    auto text = pass.StartText();
    const uint8_t* end = nullptr;
    if constexpr (Pass::builds)
    {
        end = text.PutUpTo(NumberStops, at, pass.end);
    }
    else
    {
        end = CheckNumber(pass, at);
        if (end == nullptr)
        {
            return nullptr;
        }
        text.length = CountLeft(at, end);
    }
    pass.EndText(text, number);
    return end;
}

template<uint32_t size, typename Pass>
const uint8_t* ReadWord(Pass& pass, const uint8_t* at, const char (&word)[size], JsonType type,
                        JsonValue* value)
{
    pass.SetValue(value, nullptr, type);
    return IsWord(at, pass.end, word) ? at + size - 1 : Fail(pass, at, JsonError::BadValue);
}

/// A value that holds no others.
template<typename Pass>
const uint8_t* ReadScalar(Pass& pass, const uint8_t* at, int32_t character, JsonValue* value)
{
    if (IsQuote(pass, character))
    {
        JsonString* string = pass.template Take<JsonString>(pass.stringSize);
        pass.SetValue(value, string, JsonType::String);
        return ReadString(pass, at, string);
    }
    switch (character)
    {
    case 't':
        return ReadWord(pass, at, "true", JsonType::True, value);
    case 'f':
        return ReadWord(pass, at, "false", JsonType::False, value);
    case 'n':
        return ReadWord(pass, at, "null", JsonType::Null, value);
    default:
        break;
    }
    if (IsDigit(character) || character == '-' || IsExtendedNumberStart(pass, character))
    {
        JsonNumber* number = pass.template Take<JsonNumber>(sizeof(JsonNumber));
        pass.SetValue(value, number, JsonType::Number);
        return ReadNumber(pass, at, number);
    }
    return Fail(pass, at, JsonError::BadValue);
}

/// A value whose own record is taken already.
template<typename Pass>
const uint8_t* ReadValue(Pass& pass, const uint8_t* at, JsonValue* value)
{
    pass.Place(at, value);
    const int32_t character = CharacterAt(pass, at);
    const bool isContainer = character == '{' || character == '[';
    return isContainer ? ReadContainer(pass, at, value) : ReadScalar(pass, at, character, value);
}

/// The value at the state's offset, after whitespace, in a record that is taken already.
/// \param withoutBraces whether it is an object whose braces can be left out.
template<typename Pass>
const uint8_t* ReadRoot(Pass& pass, bool withoutBraces, JsonValue* value)
{
    const uint8_t* at = SkipWhitespace(pass, pass.source + pass.offset);
    if (withoutBraces && CharacterAt(pass, at) != '{')
    {
        pass.Place(at, value);
        at = ReadItems<JsonObject, JsonObjectElement, endOfText>(pass, at, value);
    }
    else
    {
        at = ReadValue(pass, at, value);
    }
    if (at != nullptr)
    {
        pass.offset = CountLeft(pass.source, at);
    }
    return at;
}
} // namespace Torvane
