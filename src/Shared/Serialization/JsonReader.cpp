#include "Shared/Serialization/JsonReader.h"

#include "Shared/Serialization/JsonSizePass.h"

#include <stdlib.h>

namespace Torvane
{
JsonParseState StartJsonParse(const void* source, uint32_t size, uint32_t flags)
{
    JsonParseState state = {};
    state.source = static_cast<const uint8_t*>(source);
    state.size = size;
    state.flags = flags;
    state.lineNumber = 1;
    return state;
}

uint32_t SizeJson(JsonParseState& state, uint32_t withoutBraces)
{
    JsonSizer sizer(state);
    sizer.Take<JsonValue>(sizer.valueSize);
    const bool passed = ReadRoot(sizer, withoutBraces != 0, nullptr) != nullptr;
    state = sizer;
    return passed ? 0 : 1;
}

JsonValue* ParseJson(JsonParseState& state)
{
    const uint32_t withoutBraces = state.flags & JsonOption::RootWithoutBraces;
    if (SizeJson(state, withoutBraces) != 0)
    {
        return nullptr;
    }
    SkipJsonWhitespace(state);
    const bool isTooLarge = state.domSize >= UINT32_MAX - state.dataSize;
    if (state.offset != state.size || isTooLarge)
    {
        return nullptr;
    }
    char* block = static_cast<char*>(malloc(state.domSize + state.dataSize));
    if (block == nullptr)
    {
        return nullptr;
    }
    const bool placed = (state.flags & JsonOption::RecordPositions) != 0;
    state.offset = 0;
    state.lineNumber = 1;
    state.lineOffset = 0;
    state.dom = block + (placed ? sizeof(JsonPlacedValue) : sizeof(JsonValue));
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
