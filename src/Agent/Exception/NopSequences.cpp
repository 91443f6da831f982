#include "Agent/Exception/NopSequences.h"

namespace Torvane
{
namespace
{
constexpr uint8_t nop1[] = {0x90};                                           // nop
constexpr uint8_t nop2[] = {0x66, 0x90};                                     // xchg ax, ax
constexpr uint8_t nop3[] = {0x0F, 0x1F, 0x00};                               // nop [eax]
constexpr uint8_t nop4[] = {0x0F, 0x1F, 0x40, 0x00};                         // nop [eax + disp8]
constexpr uint8_t nop5[] = {0x0F, 0x1F, 0x44, 0x00, 0x00};                   // nop [eax + eax + disp8]
constexpr uint8_t nop6[] = {0x66, 0x0F, 0x1F, 0x44, 0x00, 0x00};             // the same, 16-bit operand
constexpr uint8_t nop7[] = {0x0F, 0x1F, 0x80, 0x00, 0x00, 0x00, 0x00};       // nop [eax + disp32]
constexpr uint8_t nop8[] = {0x0F, 0x1F, 0x84, 0x00, 0x00, 0x00, 0x00, 0x00}; // nop [eax + eax + disp32]

// The form of 8 bytes, followed by that of the rest.
constexpr uint8_t nop9[] = {0x0F, 0x1F, 0x84, 0x00, 0x00, 0x00, 0x00, 0x00, 0x90};
constexpr uint8_t nop10[] = {0x0F, 0x1F, 0x84, 0x00, 0x00, 0x00, 0x00, 0x00, 0x66, 0x90};
constexpr uint8_t nop11[] = {0x0F, 0x1F, 0x84, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0F, 0x1F, 0x00};
constexpr uint8_t nop12[] = {0x0F, 0x1F, 0x84, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0F, 0x1F, 0x40, 0x00};
constexpr uint8_t nop13[] = {0x0F, 0x1F, 0x84, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0F, 0x1F, 0x44, 0x00, 0x00};
constexpr uint8_t nop14[] = {0x0F, 0x1F, 0x84, 0x00, 0x00, 0x00, 0x00,
                             0x00, 0x66, 0x0F, 0x1F, 0x44, 0x00, 0x00};
constexpr uint8_t nop15[] = {0x0F, 0x1F, 0x84, 0x00, 0x00, 0x00, 0x00, 0x00,
                             0x0F, 0x1F, 0x80, 0x00, 0x00, 0x00, 0x00};

constexpr const uint8_t* nopSequences[] = {
    nullptr, nop1, nop2, nop3, nop4, nop5, nop6, nop7, nop8, nop9, nop10, nop11, nop12, nop13, nop14, nop15,
};
static_assert(sizeof(nop1) == 1 && sizeof(nop2) == 2 && sizeof(nop3) == 3 && sizeof(nop4) == 4 &&
              sizeof(nop5) == 5 && sizeof(nop6) == 6 && sizeof(nop7) == 7 && sizeof(nop8) == 8 &&
              sizeof(nop9) == 9 && sizeof(nop10) == 10 && sizeof(nop11) == 11 && sizeof(nop12) == 12 &&
              sizeof(nop13) == 13 && sizeof(nop14) == 14 && sizeof(nop15) == 15);
static_assert(sizeof(nopSequences) / sizeof(nopSequences[0]) == 16);
} // namespace

const uint8_t* GetNopSequence(uint8_t length)
{
    return nopSequences[length];
}
} // namespace Torvane
