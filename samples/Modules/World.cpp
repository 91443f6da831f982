#include "samples/Modules/World.h"

#include "samples/Modules/Physics.h"

int SimulateWorld(int seconds)
{
    constexpr int height = 100;
    return Fall(height, seconds);
}
