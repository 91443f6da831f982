#include "Shared/Filesystem/Windows/NarrowPath.h"

#include <stdlib.h>

namespace Torvane
{
FixedWideString WidenPath(const char* path)
{
    FixedString narrow = {};
    narrow.Assign(path);
    FixedWideString wide = {};
    size_t converted = 0;
    mbstowcs_s(&converted, wide.text, 1024, narrow.text, _TRUNCATE);
    wide.length = narrow.length;
    return wide;
}
} // namespace Torvane
