#include "tools/blobs/Command.h"

#include <stdio.h>

#ifdef _WIN32
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

namespace
{
/// The runtime's own arguments are in the system's code page, which lacks most characters.
std::vector<std::string> Arguments(int, char**)
{
    int count = 0;
    wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i)
    {
        std::string text(wcslen(wide[i]) * 3 + 1, '\0');
        text.resize(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, wide[i], -1, text.data(),
                                                            static_cast<int>(text.size()), nullptr, nullptr) -
                                        1));
        arguments.push_back(text);
    }
    LocalFree(wide);
    return arguments;
}

/// UTF-8, with line feeds on every platform.
void PrepareOutput()
{
    SetConsoleOutputCP(CP_UTF8);
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}
} // namespace
#else
namespace
{
std::vector<std::string> Arguments(int count, char** values)
{
    return std::vector<std::string>(values + 1, values + (count > 1 ? count : 1));
}

void PrepareOutput()
{
}
} // namespace
#endif

int main(int count, char** values)
{
    using namespace Torvane::Blobs;

    PrepareOutput();
    const Outcome outcome = RunCommand(Arguments(count, values));
    fwrite(outcome.output.data(), 1, outcome.output.size(), stdout);
    fwrite(outcome.error.data(), 1, outcome.error.size(), stderr);
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
    {
        fputs("blobs: The output can't be written.\n", stderr);
        return failure;
    }
    return outcome.exitCode;
}
