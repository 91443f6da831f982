#include "bridge/Recording/Encoding.h"

namespace Torvane::Bridge
{
namespace
{
constexpr uint32_t replacement = 0xFFFD;
constexpr size_t none = SIZE_MAX;

void AppendUtf8(std::string& text, uint32_t codePoint)
{
    const auto append = [&text](uint32_t byte) {
        text.push_back(static_cast<char>(byte));
    };
    if (codePoint < 0x80)
    {
        append(codePoint);
        return;
    }
    if (codePoint < 0x800)
    {
        append(0xC0 | codePoint >> 6);
    }
    else
    {
        if (codePoint < 0x10000)
        {
            append(0xE0 | codePoint >> 12);
        }
        else
        {
            append(0xF0 | codePoint >> 18);
            append(0x80 | (codePoint >> 12 & 0x3F));
        }
        append(0x80 | (codePoint >> 6 & 0x3F));
    }
    append(0x80 | (codePoint & 0x3F));
}

/// How many bytes the character at `position` has; `none` if there is none of UTF-8.
size_t Utf8Length(const std::string& text, size_t position)
{
    const auto byteAt = [&text](size_t i) {
        return static_cast<uint8_t>(text[i]);
    };
    const uint32_t first = byteAt(position);
    const size_t length = first < 0x80   ? 1
                          : first < 0xC2 ? none
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF5 ? 4
                                         : none;
    if (length == none || text.size() - position < length)
    {
        return none;
    }
    for (size_t i = 1; i < length; ++i)
    {
        if ((byteAt(position + i) & 0xC0) != 0x80)
        {
            return none;
        }
    }
    const uint32_t second = length > 1 ? byteAt(position + 1) : 0;
    const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool isSurrogate = first == 0xED && second >= 0xA0;
    const bool isTooLarge = first == 0xF4 && second >= 0x90;
    return isOverlong || isSurrogate || isTooLarge ? none : length;
}

int DigitValue(char digit)
{
    return digit >= '0' && digit <= '9'   ? digit - '0'
           : digit >= 'a' && digit <= 'f' ? digit - 'a' + 10
           : digit >= 'A' && digit <= 'F' ? digit - 'A' + 10
                                          : -1;
}
} // namespace

std::string Utf8FromUtf16(const uint8_t* units, size_t count)
{
    const auto unitAt = [units](size_t i) {
        return uint32_t(units[2 * i] | units[2 * i + 1] << 8);
    };
    std::string text;
    for (size_t i = 0; i < count; ++i)
    {
        const uint32_t unit = unitAt(i);
        if (unit < 0xD800 || unit > 0xDFFF)
        {
            AppendUtf8(text, unit);
        }
        else if (unit < 0xDC00 && i + 1 < count && (unitAt(i + 1) & 0xFC00) == 0xDC00)
        {
            AppendUtf8(text, 0x10000 + ((unit & 0x3FF) << 10) + (unitAt(i + 1) & 0x3FF));
            ++i;
        }
        else
        {
            AppendUtf8(text, replacement);
        }
    }
    return text;
}

std::string ValidUtf8(const std::string& text)
{
    std::string valid;
    valid.reserve(text.size());
    for (size_t i = 0; i < text.size();)
    {
        const size_t length = Utf8Length(text, i);
        if (length == none)
        {
            AppendUtf8(valid, replacement);
            ++i;
        }
        else
        {
            valid.append(text, i, length);
            i += length;
        }
    }
    return valid;
}

void AppendQuoted(std::string& json, const std::string& text)
{
    json.push_back('"');
    for (const char character : text)
    {
        const char* const escape = character == '"'    ? "\\\""
                                   : character == '\\' ? "\\\\"
                                   : character == '\b' ? "\\b"
                                   : character == '\f' ? "\\f"
                                   : character == '\n' ? "\\n"
                                   : character == '\r' ? "\\r"
                                   : character == '\t' ? "\\t"
                                                       : nullptr;
        if (escape != nullptr)
        {
            json += escape;
        }
        else if (static_cast<uint8_t>(character) < 0x20)
        {
            const uint8_t byte = static_cast<uint8_t>(character);
            json += "\\u00";
            AppendHex(json, &byte, 1);
        }
        else
        {
            json.push_back(character);
        }
    }
    json.push_back('"');
}

void AppendHex(std::string& text, const uint8_t* bytes, size_t size)
{
    constexpr char digits[] = "0123456789abcdef";
    const size_t begin = text.size();
    text.resize(begin + size * 2);
    char* hex = &text[begin];
    for (size_t i = 0; i < size; ++i)
    {
        *hex++ = digits[bytes[i] >> 4];
        *hex++ = digits[bytes[i] & 0xF];
    }
}

std::string HexFromBytes(const uint8_t* bytes, size_t size)
{
    std::string hex;
    AppendHex(hex, bytes, size);
    return hex;
}

bool BytesFromHex(const std::string& hex, std::vector<uint8_t>& bytes)
{
    bytes.resize(hex.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i)
    {
        const int high = DigitValue(hex[2 * i]);
        const int low = DigitValue(hex[2 * i + 1]);
        if (high < 0 || low < 0)
        {
            return false;
        }
        bytes[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return hex.size() % 2 == 0;
}

std::string HexNumber(uint64_t number, int digits)
{
    std::string text;
    for (int shift = 60; shift >= 0; shift -= 4)
    {
        const uint32_t digit = static_cast<uint32_t>(number >> shift & 0xF);
        if (digit != 0 || !text.empty() || shift < digits * 4)
        {
            text.push_back("0123456789ABCDEF"[digit]);
        }
    }
    return "0x" + text;
}
} // namespace Torvane::Bridge
