#include "tools/doctor/Report.h"

#include "bridge/Text.h"

#include <iterator>
#include <windows.h>

namespace Torvane::Doctor
{
namespace
{
constexpr const char* labels[] = {"ok       ", "warning  ", "problem  "}; ///< by `Severity`

std::string Fill(const char* text, std::initializer_list<std::string> arguments)
{
    std::string filled;
    for (; *text != '\0'; ++text)
    {
        const size_t argument = static_cast<size_t>(text[0] == '%' ? text[1] - '1' : -1);
        if (argument < arguments.size())
        {
            filled += std::data(arguments)[argument];
            ++text;
        }
        else
        {
            filled += *text;
        }
    }
    return filled;
}
} // namespace

void Print(const std::string& text, bool isError)
{
    const HANDLE output = GetStdHandle(isError ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
    DWORD written = 0;
    WriteFile(output, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

std::string ErrorText(uint32_t code)
{
    wchar_t buffer[512] = {};
    std::wstring text(buffer, FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                             nullptr, code, 0, buffer, 512, nullptr));
    while (!text.empty() && (text.back() <= L' ' || text.back() == L'.'))
    {
        text.pop_back();
    }
    return Bridge::Utf8(text) + (text.empty() ? "" : ", ") + "error " + std::to_string(code);
}

void Report::Add(Finding finding, std::initializer_list<std::string> arguments)
{
    const FindingText& text = GetText(finding);
    hasProblem = hasProblem || text.severity == Severity::Problem;
    std::string line = labels[static_cast<size_t>(text.severity)] + Fill(text.text, arguments);
    if (*text.remedy != '\0')
    {
        line += " " + Fill(text.remedy, arguments);
    }
    Print(line + "\n");
}
} // namespace Torvane::Doctor
