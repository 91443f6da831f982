/// \file
/// Decodes one instruction after the other, for a script to compare. Reads records of 15 bytes of code from standard
/// input until its end, and writes a byte for each: the instruction's length, 0 if there is none.

#include "Agent/Exception/InstructionDecoder.h"

#include <stdint.h>
#include <stdio.h>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

int main()
{
#ifdef _WIN32
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    Torvane::StartupInstructionDecoder();
    uint8_t code[Torvane::longestInstruction];
    while (fread(code, sizeof(code), 1, stdin) == 1)
    {
        putchar(Torvane::GetInstructionLength(code));
    }
    return fflush(stdout) == 0 ? 0 : 1;
}
