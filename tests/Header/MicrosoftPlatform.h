/* What is included before everything else where tests compile for Microsoft's ABI. MinGW's headers replace those of the Windows
 * SDK there, and its C++ library that of Microsoft. They need GNU C, so the compiler accepts it for them, but after them the
 * project's own headers see the macros that they see with clang-cl, and have no GNU attributes. */
#pragma clang system_header
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>
#include <windows.h>

#if defined(__cplusplus) && __has_include(<vector>) /* for Bridges, not for hosts */
#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>
#undef CopyMemory /* has to be included after the Bridge kit's headers; see Blob.h */
#endif

#undef __GNUC__
#undef __GNUG__
#pragma GCC poison __attribute__ __asm__
