#include "bridge/Text.h"

#include <stdio.h>

#include <windows.h>

namespace Torvane::Bridge
{
std::string Utf8(const std::wstring& string)
{
    std::string bytes(string.size() * 3, '\0');
    bytes.resize(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, string.data(),
                                                         static_cast<int>(string.size()), bytes.data(),
                                                         static_cast<int>(bytes.size()), nullptr, nullptr)));
    return bytes;
}

std::string AddressText(RemoteAddress address)
{
    char text[20];
    snprintf(text, sizeof(text), "0x%08X", static_cast<uint32_t>(address));
    return text;
}
} // namespace Torvane::Bridge
