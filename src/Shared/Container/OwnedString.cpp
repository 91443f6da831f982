#include "Shared/Container/OwnedString.h"

#include "Shared/Memory/MemorySystem.h"

#include <string.h>

namespace Torvane
{
namespace
{
template<typename Character>
BasicOwnedString<Character> AllocateText(uint32_t length)
{
    const uint32_t capacity = length + 1;
    const Allocation block = Allocate(capacity * static_cast<uint32_t>(sizeof(Character)));
    return {length, capacity, static_cast<Character*>(block.pointer)};
}

template<typename Character>
void FreeText(BasicOwnedString<Character>& text)
{
    if (text.capacity != 0 && text.pointer != nullptr)
    {
        Free(text.pointer, text.capacity * static_cast<uint32_t>(sizeof(Character)));
    }
    text = BasicOwnedString<Character>{};
}
} // namespace

OwnedString AllocateNarrow(uint32_t length)
{
    return AllocateText<char>(length);
}

OwnedWideString AllocateWide(uint32_t length)
{
    return AllocateText<wchar_t>(length);
}

OwnedWideString CopyWide(const wchar_t* text)
{
    uint32_t length = 0;
    while (text[length] != L'\0')
    {
        ++length;
    }
    const OwnedWideString copy = AllocateWide(length);
    memcpy(copy.pointer, text, copy.capacity * sizeof(wchar_t));
    return copy;
}

void Free(OwnedString& text)
{
    FreeText(text);
}

void Free(OwnedWideString& text)
{
    FreeText(text);
}
} // namespace Torvane
