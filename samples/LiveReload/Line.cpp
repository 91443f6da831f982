#include "Line.h"

#include <stdio.h>

// Edit the line below while the host runs. `./dev demo --watch` shows at which copy of this file to do it.

void FormatLine(char* text, size_t size, unsigned counter)
{
    snprintf(text, size, "counter %u", counter);
}
