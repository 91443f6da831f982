#include "Shared/Serialization/JsonReader.h"

#include <stdlib.h>

namespace Torvane
{
namespace
{
uint32_t RootSize(const JsonParseState& state)
{
    const bool placed = (state.flags & JsonOption::RecordPositions) != 0;
    return static_cast<uint32_t>(placed ? sizeof(JsonPlacedValue) : sizeof(JsonValue));
}

void Rewind(JsonParseState& state)
{
    state.offset = 0;
    state.lineNumber = 1;
    state.lineOffset = 0;
}

/// Null if the tree's size can't be counted or the runtime doesn't give the memory.
char* AllocateTree(const JsonParseState& state)
{
    if (state.domSize >= UINT32_MAX - state.dataSize)
    {
        return nullptr;
    }
    return static_cast<char*>(malloc(state.domSize + state.dataSize));
}
} // namespace

JsonParseState StartJsonParse(const void* source, uint32_t size, uint32_t flags)
{
    JsonParseState state = {};
    state.source = static_cast<const uint8_t*>(source);
    state.size = size;
    state.flags = flags;
    state.lineNumber = 1;
    return state;
}

JsonValue* ParseJson(JsonParseState& state)
{
    const uint32_t withoutBraces = state.flags & JsonOption::RootWithoutBraces;
    if (SizeJson(state, withoutBraces) != 0)
    {
        return nullptr;
    }
    SkipJsonWhitespace(state);
    if (state.offset != state.size)
    {
        return nullptr;
    }
    char* block = AllocateTree(state);
    if (block == nullptr)
    {
        return nullptr;
    }
    Rewind(state);
    state.dom = block + RootSize(state);
    state.data = block + state.domSize;
    JsonValue* root = reinterpret_cast<JsonValue*>(block);
    BuildJson(state, withoutBraces, *root);
    return root;
}

void FreeJson(JsonValue* root)
{
    free(root);
}
} // namespace Torvane
