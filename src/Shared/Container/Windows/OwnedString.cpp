#include "Shared/Container/OwnedString.h"

#include <stdlib.h>
#include <string.h>

namespace Torvane
{
OwnedString NarrowFromWide(const wchar_t* text)
{
    OwnedString narrow(static_cast<uint32_t>(wcslen(text)));
    size_t converted = 0;
    wcstombs_s(&converted, narrow.pointer, narrow.capacity, text, _TRUNCATE);
    return narrow;
}

OwnedWideString WideFromNarrow(const char* text)
{
    OwnedWideString wide(static_cast<uint32_t>(strlen(text)));
    size_t converted = 0;
    mbstowcs_s(&converted, wide.pointer, wide.capacity, text, _TRUNCATE);
    return wide;
}
} // namespace Torvane
