#include "Shared/Container/OwnedString.h"

#include "Shared/Memory/MemorySystem.h"

#include <stdlib.h>
#include <string.h>

namespace Torvane
{
namespace
{
template<typename Character>
BasicOwnedString<Character> AllocateText(size_t length)
{
    const uint32_t capacity = static_cast<uint32_t>(length) + 1;
    const Allocation block = Allocate(capacity * static_cast<uint32_t>(sizeof(Character)));
    return {static_cast<uint32_t>(length), capacity, static_cast<Character*>(block.pointer)};
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

OwnedString NarrowFromWide(const wchar_t* text)
{
    OwnedString narrow = AllocateText<char>(wcslen(text));
    size_t converted = 0;
    wcstombs_s(&converted, narrow.pointer, narrow.capacity, text, _TRUNCATE);
    return narrow;
}

OwnedWideString WideFromNarrow(const char* text)
{
    OwnedWideString wide = AllocateText<wchar_t>(strlen(text));
    size_t converted = 0;
    mbstowcs_s(&converted, wide.pointer, wide.capacity, text, _TRUNCATE);
    return wide;
}

OwnedWideString CopyWide(const wchar_t* text)
{
    OwnedWideString copy = AllocateText<wchar_t>(wcslen(text));
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
