#include "Output.h"

#include <string.h>

#include <windows.h>

namespace
{
struct Buffer
{
    char text[256];
    DWORD length = 0;

    void Append(const char* more)
    {
        for (; *more != '\0' && length < sizeof(text) - 1; ++more)
        {
            text[length++] = *more;
        }
    }

    void AppendNumber(unsigned number)
    {
        char digits[11] = {};
        size_t first = sizeof(digits) - 1;
        do
        {
            digits[--first] = static_cast<char>('0' + number % 10);
            number /= 10;
        }
        while (number != 0);
        Append(digits + first);
    }

    void Write()
    {
        text[length++] = '\n'; // `Append` has left room for it
        DWORD written = 0;
        WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text, length, &written, nullptr);
    }
};
} // namespace

void PrintLine(const char* tag, const char* text)
{
    Buffer buffer;
    buffer.Append(tag);
    buffer.Append("  ");
    buffer.Append(text);
    buffer.Write();
}

void PrintLine(const char* tag, const char* text, unsigned number)
{
    Buffer buffer;
    buffer.Append(tag);
    buffer.Append("  ");
    buffer.Append(text);
    buffer.AppendNumber(number);
    buffer.Write();
}
