#include "bridge/Utf8.h"

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
} // namespace Torvane::Bridge
