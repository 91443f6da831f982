#include "Value.h"

int Value()
{
    return 2; // the edit
}
