#include "Shared/Serialization/JsonSizePass.h"

namespace Torvane
{
uint32_t SizeJson(JsonParseState& state, uint32_t withoutBraces)
{
    JsonSizer sizer(state);
    sizer.Take<JsonValue>(sizer.valueSize);
    const bool passed = ReadRoot(sizer, withoutBraces != 0, nullptr) != nullptr;
    state = sizer;
    return passed ? 0 : 1;
}
} // namespace Torvane
