#include "Value.h"

int Value()
{
    return 1;
}
