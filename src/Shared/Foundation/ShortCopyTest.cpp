#include "Shared/Foundation/ShortCopy.h"

#include <gtest/gtest.h>
#include <string>

namespace Torvane
{
TEST(ShortCopy, CopiesEverySizeAndNothingElse)
{
    std::string source(200, ' ');
    for (size_t i = 0; i < source.size(); ++i)
    {
        source[i] = static_cast<char>(i + 1);
    }
    for (size_t size = 0; size < source.size(); ++size)
    {
        std::string copy(source.size() + 1, '#');
        CopyShort(copy.data(), source.data(), size);
        EXPECT_EQ(copy, source.substr(0, size) + std::string(copy.size() - size, '#')) << size;
    }
}
} // namespace Torvane
