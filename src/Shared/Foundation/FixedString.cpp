#include "Shared/Foundation/FixedString.h"

#include "Shared/Foundation/BoundedFormat.h"

#include <stdarg.h>
#include <string.h>

namespace Torvane
{
namespace
{
constexpr uint32_t capacity = 1024;

template<typename Character>
uint32_t MeasureLength(const Character* text)
{
    uint32_t length = 0;
    while (text[length] != 0)
    {
        ++length;
    }
    return length;
}

template<typename String, typename Character>
void AppendText(String& string, const Character* source)
{
    const uint32_t length = MeasureLength(source);
    memcpy(string.text + string.length, source, length * sizeof(Character));
    string.length += length;
    string.text[string.length] = 0;
}
} // namespace

void FixedString::Assign(const char* source)
{
    length = 0;
    AppendText(*this, source);
}

void FixedString::Append(const char* source)
{
    AppendText(*this, source);
}

void FixedString::FormatUnchecked(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int formatted = Unchecked::FormatBoundedV(text, capacity, format, arguments);
    va_end(arguments);
    if (formatted >= 0)
    {
        length = static_cast<uint32_t>(formatted);
    }
}

void FixedWideString::Assign(const wchar_t* source)
{
    length = 0;
    AppendText(*this, source);
}

void FixedWideString::Append(const wchar_t* source)
{
    AppendText(*this, source);
}

void FixedWideString::FormatUnchecked(const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int formatted = Unchecked::FormatBoundedWideV(text, capacity, format, arguments);
    va_end(arguments);
    if (formatted >= 0)
    {
        length = static_cast<uint32_t>(formatted);
    }
}
} // namespace Torvane
