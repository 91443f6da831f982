#include "samples/FrameLoop/Motion.h"

int Advance(int position)
{
    return position + 2;
}
