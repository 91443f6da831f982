#pragma once

/// \file
/// Random JSON texts for tests, valid ones and broken ones. The same seed gives the same texts everywhere.

#include <stddef.h>
#include <stdint.h>

#include <random>
#include <string>
#include <string_view>

namespace Torvane::Testing
{
class RandomJson
{
public:
    explicit RandomJson(uint32_t seed)
        : random(seed)
    {
    }

    /// A valid text. Its strings hold unescaped control characters and bytes from 0x80 as well.
    std::string Document()
    {
        std::string text;
        AppendSpace(text);
        AppendValue(text, 0);
        AppendSpace(text);
        return text;
    }

    /// The text with one to three changes, each of which can break it or leave it whole.
    std::string Mutate(std::string text)
    {
        for (uint32_t changes = Below(3) + 1; changes != 0; --changes)
        {
            Change(text);
        }
        return text;
    }

private:
    uint32_t Below(uint32_t limit)
    {
        return static_cast<uint32_t>(random() % limit);
    }

    template<size_t Count>
    std::string_view OneOf(const std::string_view (&choices)[Count])
    {
        return choices[Below(Count)];
    }

    void AppendSpace(std::string& text)
    {
        static constexpr std::string_view spaces[] = {"", "", "", "", " ", "\n", "\r\n", "\t", "  "};
        text += OneOf(spaces);
    }

    void AppendDigits(std::string& text)
    {
        for (uint32_t count = Below(8) == 0 ? 30 : Below(4) + 1; count != 0; --count)
        {
            text += static_cast<char>('0' + Below(10));
        }
    }

    void AppendNumber(std::string& text)
    {
        static constexpr std::string_view starts[] = {"0", "-0", "1", "-9", "12", "-345", "2147483648"};
        static constexpr std::string_view exponents[] = {"", "", "e", "E", "e+", "E-"};
        text += OneOf(starts);
        if (text.back() != '0' && Below(4) == 0)
        {
            AppendDigits(text);
        }
        if (Below(3) == 0)
        {
            text += '.';
            AppendDigits(text);
        }
        const std::string_view exponent = OneOf(exponents);
        if (!exponent.empty())
        {
            text += exponent;
            text += static_cast<char>('0' + Below(10));
        }
    }

    void AppendString(std::string& text)
    {
        static constexpr std::string_view pieces[] = {"a",
                                                      "timeout",
                                                      "Network",
                                                      " ",
                                                      "/",
                                                      "\\\"",
                                                      "\\\\",
                                                      "\\/",
                                                      "\\b",
                                                      "\\f",
                                                      "\\n",
                                                      "\\r",
                                                      "\\t",
                                                      "\\u0000",
                                                      "\\u0041",
                                                      "\\u00E9",
                                                      "\\u07ff",
                                                      "\\u20AC",
                                                      "\\uD7ff",
                                                      "\\uE000",
                                                      "\\uffff",
                                                      "\\ud83d\\ude00",
                                                      "\\uDBFF\\uDFFF",
                                                      "\x01",
                                                      "\x1F",
                                                      "\x7F",
                                                      "\xC3\xA9",
                                                      "\xF0\x9F\x98\x80",
                                                      "\xFF",
                                                      "{",
                                                      "]",
                                                      ","};
        text += '"';
        for (uint32_t count = Below(5); count != 0; --count)
        {
            text += OneOf(pieces);
        }
        text += '"';
    }

    void AppendMember(std::string& text, uint32_t depth)
    {
        AppendString(text);
        AppendSpace(text);
        text += ':';
        AppendSpace(text);
        AppendValue(text, depth);
    }

    void AppendContainer(std::string& text, uint32_t depth, bool isObject)
    {
        text += isObject ? '{' : '[';
        AppendSpace(text);
        for (uint32_t count = Below(5); count != 0; --count)
        {
            if (isObject)
            {
                AppendMember(text, depth + 1);
            }
            else
            {
                AppendValue(text, depth + 1);
            }
            AppendSpace(text);
            if (count != 1)
            {
                text += ',';
                AppendSpace(text);
            }
        }
        text += isObject ? '}' : ']';
    }

    void AppendValue(std::string& text, uint32_t depth)
    {
        static constexpr std::string_view words[] = {"true", "false", "null"};
        const uint32_t kind = Below(depth == 0 ? 8 : depth < 6 ? 10 : 5);
        if (kind < 2)
        {
            AppendNumber(text);
        }
        else if (kind < 4)
        {
            AppendString(text);
        }
        else if (kind < 5)
        {
            text += OneOf(words);
        }
        else
        {
            AppendContainer(text, depth, kind % 2 == 0);
        }
    }

    void Change(std::string& text)
    {
        static constexpr std::string_view pieces[] = {"{",
                                                      "}",
                                                      "[",
                                                      "]",
                                                      ":",
                                                      ",",
                                                      "\"",
                                                      "\\",
                                                      "\\u",
                                                      "\\u12",
                                                      "\\ud83d",
                                                      "\\ude00",
                                                      "\\x",
                                                      "true",
                                                      "fals",
                                                      "null",
                                                      "-",
                                                      "+",
                                                      ".",
                                                      "0",
                                                      "1",
                                                      "e",
                                                      "E+",
                                                      "01",
                                                      "1.",
                                                      "-a",
                                                      "1e5",
                                                      "\t",
                                                      "\n",
                                                      "\r",
                                                      " ",
                                                      "// c\n",
                                                      "/* c */",
                                                      "'",
                                                      "=",
                                                      "x",
                                                      "NaN",
                                                      "0x1",
                                                      "\x02",
                                                      "\x80",
                                                      "\xEF\xBB\xBF",
                                                      "[]",
                                                      "{}",
                                                      "\"a\":"};
        const uint32_t size = static_cast<uint32_t>(text.size());
        const uint32_t at = Below(size + 1);
        const uint32_t length = size == at ? 0 : Below(Below(4) == 0 ? size - at : 3) + 1;
        switch (Below(7))
        {
        case 0:
        case 1:
            text.insert(at, OneOf(pieces));
            break;
        case 2:
            text.replace(at, length, OneOf(pieces));
            break;
        case 3:
            text.erase(at, length);
            break;
        case 4:
            text.insert(Below(size + 1), text.substr(at, length));
            break;
        case 5:
            text.resize(at);
            break;
        default:
            // A byte 0 is none of the changes.
            text.insert(at, 1, static_cast<char>(Below(255) + 1));
            break;
        }
    }

    std::mt19937 random;
};
} // namespace Torvane::Testing
