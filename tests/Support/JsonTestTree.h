#pragma once

/// \file
/// For tests and fuzzers of the JSON reader: parses in blocks of the exact size, compares trees, writes them out.

#include "Shared/Serialization/JsonReader.h"

#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <string_view>

namespace Torvane::Testing
{
/// A copy in a block of its exact size, so that the sanitizers see every byte that is read after its end.
class ExactCopy
{
public:
    explicit ExactCopy(std::string_view text)
        : bytes(static_cast<uint8_t*>(malloc(text.size() != 0 ? text.size() : 1)), &free)
        , size(static_cast<uint32_t>(text.size()))
    {
        memcpy(bytes.get(), text.data(), text.size());
    }

    const uint8_t* Start() const
    {
        // One of no bytes begins at the end of its block.
        return size != 0 ? bytes.get() : bytes.get() + 1;
    }

    uint32_t Size() const
    {
        return size;
    }

private:
    std::unique_ptr<uint8_t, decltype(&free)> bytes;
    uint32_t size;
};

/// A text's tree in a block that is exactly as large as pass one has counted.
struct JsonTree
{
    JsonParseState sized; ///< the state after pass one
    JsonParseState built; ///< the state after pass two
    bool sizePassed;      ///< pass one went through
    bool accepted;        ///< and nothing followed the value
    std::unique_ptr<char, decltype(&free)> block = {nullptr, &free};

    const JsonValue& Root() const
    {
        return *reinterpret_cast<const JsonValue*>(block.get());
    }

    /// Whether pass two has used up what pass one has counted, and nothing else.
    bool IsFilled() const
    {
        return built.dom == block.get() + sized.domSize && built.data == built.dom + sized.dataSize;
    }
};

/// Takes the reader's steps one by one.
inline JsonTree ParseInSteps(std::string_view text, uint32_t flags = 0)
{
    const ExactCopy source(text);
    JsonParseState state = StartJsonParse(source.Start(), source.Size(), flags);
    const uint32_t withoutBraces = flags & JsonOption::RootWithoutBraces;
    JsonTree tree = {};
    tree.sizePassed = SizeJson(state, withoutBraces) == 0;
    tree.sized = state;
    if (!tree.sizePassed)
    {
        return tree;
    }
    SkipJsonWhitespace(state);
    tree.accepted = state.offset == state.size;
    if (!tree.accepted)
    {
        return tree;
    }
    tree.block.reset(static_cast<char*>(malloc(state.domSize + state.dataSize)));
    const bool placed = (flags & JsonOption::RecordPositions) != 0;
    state.offset = 0;
    state.lineNumber = 1;
    state.lineOffset = 0;
    state.dom = tree.block.get() + (placed ? sizeof(JsonPlacedValue) : sizeof(JsonValue));
    state.data = tree.block.get() + tree.sized.domSize;
    BuildJson(state, withoutBraces, *reinterpret_cast<JsonValue*>(tree.block.get()));
    tree.built = state;
    return tree;
}

inline const JsonPosition& PositionOf(const JsonValue& value)
{
    return reinterpret_cast<const JsonPlacedValue&>(value).position;
}

inline const JsonPosition& PositionOf(const JsonString& string)
{
    return reinterpret_cast<const JsonPlacedString&>(string).position;
}

template<typename Text>
std::string_view TextOf(const Text& text)
{
    return {text.text, text.length};
}

template<typename Record>
const Record& PayloadOf(const JsonValue& value)
{
    return *static_cast<const Record*>(value.payload);
}

enum class ComparePositions
{
    No,
    Yes,
};

inline bool IsSamePosition(const JsonPosition& a, const JsonPosition& b)
{
    return a.offset == b.offset && a.lineNumber == b.lineNumber && a.column == b.column;
}

template<typename Record>
bool IsSamePlace(const Record& a, const Record& b, ComparePositions positions)
{
    return positions == ComparePositions::No || IsSamePosition(PositionOf(a), PositionOf(b));
}

inline bool IsSameString(const JsonString& a, const JsonString& b, ComparePositions positions)
{
    return TextOf(a) == TextOf(b) && a.text[a.length] == '\0' && b.text[b.length] == '\0' &&
           IsSamePlace(a, b, positions);
}

inline bool IsSameValue(const JsonValue& a, const JsonValue& b, ComparePositions positions);

inline bool IsSameObject(const JsonObject& a, const JsonObject& b, ComparePositions positions)
{
    const JsonObjectElement* left = a.first;
    const JsonObjectElement* right = b.first;
    uint32_t count = 0;
    for (; left != nullptr && right != nullptr; left = left->next, right = right->next, ++count)
    {
        if (!IsSameString(*left->name, *right->name, positions) ||
            !IsSameValue(*left->value, *right->value, positions))
        {
            return false;
        }
    }
    return left == right && count == a.count && count == b.count;
}

inline bool IsSameArray(const JsonArray& a, const JsonArray& b, ComparePositions positions)
{
    const JsonArrayElement* left = a.first;
    const JsonArrayElement* right = b.first;
    uint32_t count = 0;
    for (; left != nullptr && right != nullptr; left = left->next, right = right->next, ++count)
    {
        if (!IsSameValue(*left->value, *right->value, positions))
        {
            return false;
        }
    }
    return left == right && count == a.count && count == b.count;
}

/// \param positions whether both trees have recorded them and are to have the same.
inline bool IsSameValue(const JsonValue& a, const JsonValue& b, ComparePositions positions)
{
    if (a.type != b.type || !IsSamePlace(a, b, positions))
    {
        return false;
    }
    switch (a.type)
    {
    case JsonType::String:
        return IsSameString(PayloadOf<JsonString>(a), PayloadOf<JsonString>(b), positions);
    case JsonType::Number:
        return TextOf(PayloadOf<JsonNumber>(a)) == TextOf(PayloadOf<JsonNumber>(b));
    case JsonType::Object:
        return IsSameObject(PayloadOf<JsonObject>(a), PayloadOf<JsonObject>(b), positions);
    case JsonType::Array:
        return IsSameArray(PayloadOf<JsonArray>(a), PayloadOf<JsonArray>(b), positions);
    default:
        return a.payload == nullptr && b.payload == nullptr;
    }
}

inline void WriteString(std::string& text, const JsonString& string)
{
    constexpr char digits[] = "0123456789abcdef";
    text += '"';
    for (const char character : TextOf(string))
    {
        const uint8_t byte = static_cast<uint8_t>(character);
        if (character == '"' || character == '\\')
        {
            text += {'\\', character};
        }
        else if (byte < 0x20)
        {
            text += {'\\', 'u', '0', '0', digits[byte >> 4], digits[byte & 0xF]};
        }
        else
        {
            text += character;
        }
    }
    text += '"';
}

inline void WriteValue(std::string& text, const JsonValue& value);

inline void WriteMembers(std::string& text, const JsonObject& object)
{
    for (const JsonObjectElement* element = object.first; element != nullptr; element = element->next)
    {
        WriteString(text, *element->name);
        text += ':';
        WriteValue(text, *element->value);
        text += element->next != nullptr ? "," : "";
    }
}

inline void WriteElements(std::string& text, const JsonArray& array)
{
    for (const JsonArrayElement* element = array.first; element != nullptr; element = element->next)
    {
        WriteValue(text, *element->value);
        text += element->next != nullptr ? "," : "";
    }
}

/// Without whitespace, numbers as they are.
inline void WriteValue(std::string& text, const JsonValue& value)
{
    switch (value.type)
    {
    case JsonType::String:
        WriteString(text, PayloadOf<JsonString>(value));
        break;
    case JsonType::Number:
        text += TextOf(PayloadOf<JsonNumber>(value));
        break;
    case JsonType::Object:
        text += '{';
        WriteMembers(text, PayloadOf<JsonObject>(value));
        text += '}';
        break;
    case JsonType::Array:
        text += '[';
        WriteElements(text, PayloadOf<JsonArray>(value));
        text += ']';
        break;
    case JsonType::True:
        text += "true";
        break;
    case JsonType::False:
        text += "false";
        break;
    case JsonType::Null:
        text += "null";
        break;
    }
}

/// A text that gives the same tree with the same flags.
///
/// A root without braces is written without them: its last number can be one that only the end of the text ends.
inline std::string WriteTree(const JsonTree& tree)
{
    std::string text;
    if ((tree.sized.flags & JsonOption::RootWithoutBraces) != 0)
    {
        WriteMembers(text, PayloadOf<JsonObject>(tree.Root()));
    }
    else
    {
        WriteValue(text, tree.Root());
    }
    return text;
}
} // namespace Torvane::Testing
