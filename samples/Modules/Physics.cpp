#include "samples/Modules/Physics.h"

int Fall(int height, int seconds)
{
    constexpr int halfOfGravity = 5;
    const int fallen = halfOfGravity * seconds * seconds;
    return fallen < height ? height - fallen : 0;
}
