#include "Shared/Container/OwnedString.h"

#include <string.h>

namespace Torvane
{
namespace
{
wchar_t UnitAt(const char* address)
{
    wchar_t unit = 0;
    memcpy(&unit, address, sizeof(unit));
    return unit;
}
} // namespace

OwnedWideString CopyWide(const wchar_t* text)
{
    const char* bytes = reinterpret_cast<const char*>(text);
    uint32_t length = 0;
    while (UnitAt(bytes + length * sizeof(wchar_t)) != L'\0')
    {
        ++length;
    }
    OwnedWideString copy(length);
    memcpy(copy.pointer, bytes, copy.capacity * sizeof(wchar_t));
    return copy;
}
} // namespace Torvane
