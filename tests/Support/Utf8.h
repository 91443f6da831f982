#pragma once

/// \file
/// UTF-16 strings as the Agent's log and its narrow Blobs have them; any thread. Bridge halves have `Bridge::Utf8`.

#include <string>

#include <windows.h>

namespace Torvane::Testing
{
inline std::string Utf8(const std::wstring& text)
{
    std::string bytes(text.size() * 3, '\0');
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                                         static_cast<int>(bytes.size()), nullptr, nullptr);
    bytes.resize(static_cast<size_t>(size));
    return bytes;
}
} // namespace Torvane::Testing
