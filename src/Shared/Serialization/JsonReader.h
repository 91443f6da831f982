#pragma once

/// \file
/// Reads JSON text that is in memory into one tree in one block. Any number of threads, each with its own state.
///
/// The text needs no terminator and is read in two passes: the first checks the grammar and counts the bytes of the
/// tree, the second, which can't fail, builds the tree in a block of exactly that size. Each level of nesting takes
/// one level of recursion in either pass, and the stack is the only limit: a thread with the usual megabyte reads
/// 10,000 levels. Beyond that is a stack overflow of the calling thread (the OS's exception 0xC00000FD), which the
/// reader neither prevents nor handles.

#include <stdint.h>

namespace Torvane
{
enum class JsonType : uint32_t
{
    String = 0,
    Number = 1,
    Object = 2,
    Array = 3,
    True = 4,
    False = 5,
    Null = 6,
};

struct JsonValue
{
    void* payload; ///< the record of the type; null for true, false and null
    JsonType type;
};

struct JsonString
{
    const char* text; ///< UTF-8 as far as the source is, escapes resolved, zero-terminated
    uint32_t length;  ///< in bytes, without the terminator; the text can contain a byte 0
};

/// Numbers aren't converted.
struct JsonNumber
{
    const char* text; ///< as written in the source, zero-terminated
    uint32_t length;  ///< in bytes, without the terminator
};

struct JsonObjectElement
{
    JsonString* name;
    JsonValue* value;
    JsonObjectElement* next; ///< null for the last
};

/// Its members in the order of the source. A name can occur more than once.
struct JsonObject
{
    JsonObjectElement* first; ///< null if there is none
    uint32_t count;
};

struct JsonArrayElement
{
    JsonValue* value;
    JsonArrayElement* next; ///< null for the last
};

struct JsonArray
{
    JsonArrayElement* first; ///< null if there is none
    uint32_t count;
};

/// Where a value or a string begins.
struct JsonPosition
{
    uint32_t offset;     ///< bytes from the start of the text
    uint32_t lineNumber; ///< from 1
    uint32_t column;     ///< bytes since the last line feed: a line begins with 1, but the first one with 0
};

/// With `RecordPositions`, each `JsonValue` of the tree is the first field of one of these.
struct JsonPlacedValue
{
    JsonValue value;
    JsonPosition position;
};

/// With `RecordPositions`, each `JsonString` of the tree is the first field of one of these.
struct JsonPlacedString
{
    JsonString string;
    JsonPosition position;
};

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(JsonValue) == 8 && sizeof(JsonString) == 8 && sizeof(JsonNumber) == 8);
static_assert(sizeof(JsonObject) == 8 && sizeof(JsonObjectElement) == 12);
static_assert(sizeof(JsonArray) == 8 && sizeof(JsonArrayElement) == 8);
static_assert(sizeof(JsonPlacedValue) == sizeof(JsonValue) + 12);
static_assert(sizeof(JsonPlacedString) == sizeof(JsonString) + 12);
#endif

/// Extensions of the grammar, to be combined; 0 is strict. Only `RootWithoutBraces` rejects texts that are accepted
/// without it.
namespace JsonOption
{
enum Bit : uint32_t
{
    TrailingComma = 0x1,
    UnquotedNames = 0x2,     ///< made of ASCII letters, digits and `_`
    RootWithoutBraces = 0x4, ///< the root is an object, and its braces can be left out
    EqualsSign = 0x8,        ///< in place of a colon
    NoCommas = 0x10,         ///< they can be left out
    Comments = 0x20,         ///< `//` to the end of the line, and `/* */`
    RecordPositions = 0x80,  ///< see `JsonPlacedValue` and `JsonPlacedString`
    SingleQuotes = 0x100,
    Hexadecimal = 0x200, ///< numbers with `0x` or `0X` after an optional sign
    LeadingPlus = 0x400,
    LoosePoint = 0x800,           ///< a number can begin or end with its point
    InfinityAndNaN = 0x1000,      ///< `Infinity` and `NaN`, with an optional sign of either kind
    LineBreaksInStrings = 0x2000, ///< raw, or after a backslash, which is dropped
};
}

namespace JsonError
{
enum Value : uint32_t
{
    CommaExpected = 1, ///< or a closing bracket
    ColonExpected = 2,
    QuoteExpected = 3, ///< an opening one. Never reported: in a name it becomes `BadString`
    BadEscape = 4,     ///< or a line break in a string
    BadNumber = 5,
    BadValue = 6,
    UnexpectedEnd = 7,
    BadString = 8,        ///< or a bad name, whatever is wrong with it
    BracketExpected = 11, ///< never reported: a container is read only where its bracket is
};
}

/// The state of one parse.
struct JsonParseState
{
    const uint8_t* source;
    uint32_t size; ///< of the source, in bytes
    /// Of the next byte. After a failure of the byte that can't be (the first one of a word or an escape).
    uint32_t offset;
    uint32_t flags;      ///< of `JsonOption`
    char* data;          ///< pass two: next free byte for text
    char* dom;           ///< pass two: next free byte for records
    uint32_t domSize;    ///< counted by pass one, in bytes. Stays at the largest number when that is exceeded
    uint32_t dataSize;   ///< likewise. Pass two may write to any of so many bytes from `data` on
    uint32_t lineNumber; ///< from 1
    uint32_t lineOffset; ///< of the last line feed
    uint32_t error;      ///< of `JsonError`; valid only after a failure
};

/// A state at the start of a text.
JsonParseState StartJsonParse(const void* source, uint32_t size, uint32_t flags);

/// Pass one: checks the value at the state's offset and adds up what its tree takes.
/// \param withoutBraces not 0: the value is an object whose braces can be left out.
/// \return 0, or 1 on failure with the state's `error` set.
uint32_t SizeJson(JsonParseState& state, uint32_t withoutBraces);

/// Skips whitespace, and comments if the state's flags allow them.
/// \return 0 if there is a character at the offset, 1 with `UnexpectedEnd` at the end of the text. A comment without
/// its end counts as the latter, and the offset stays at its start.
uint32_t SkipJsonWhitespace(JsonParseState& state);

/// Pass two: builds the tree of the value at the state's offset, which pass one must have accepted, through the
/// state's `dom` and `data`.
/// \param value the value's own record, inside the block, a `JsonPlacedValue` with `RecordPositions`.
void BuildJson(JsonParseState& state, uint32_t withoutBraces, JsonValue& value);

/// Both passes over a whole text, which has nothing but whitespace after the value.
///
/// The block comes from the runtime's `malloc` and contains the root value, then all records in the order in which they
/// are read (a value, its record, then for each member or element its link, its name and its value), then all texts;
/// every pointer of the tree points into it. The text isn't needed any more.
/// \return the root and with it the block, to be freed with `FreeJson`; null on failure, with nothing allocated. A tree
/// of 4 GB or more is a failure.
JsonValue* ParseJson(JsonParseState& state);

void FreeJson(JsonValue* root);

/// The value's object, or null if it is of another type.
inline const JsonObject* AsJsonObject(const JsonValue& value)
{
    return value.type == JsonType::Object ? static_cast<const JsonObject*>(value.payload) : nullptr;
}
} // namespace Torvane
