#include "tools/blobs/Packing.h"

#include "gtest/gtest.h"

#include <zlib.h>

using namespace Torvane::Blobs;

namespace
{
std::string Inflated(const std::string& deflated, size_t size)
{
    std::string bytes(size + 1, '\0');
    uLongf count = static_cast<uLongf>(bytes.size());
    EXPECT_EQ(Z_OK, uncompress(reinterpret_cast<Bytef*>(bytes.data()), &count,
                               reinterpret_cast<const Bytef*>(deflated.data()),
                               static_cast<uLong>(deflated.size())));
    bytes.resize(count);
    return bytes;
}
} // namespace

TEST(Packing, InflatesToTheSameBytes)
{
    // One size is that of the steps in which it is deflated, two are beside it.
    for (const size_t size : {size_t(0), size_t(1), size_t(1000), size_t((1 << 20) - 1), size_t(1 << 20),
                              size_t((1 << 20) + 1), size_t(3 << 20)})
    {
        std::string bytes(size, '\0');
        for (size_t i = 0; i < size; ++i)
        {
            bytes[i] = static_cast<char>(i * i >> 7);
        }
        EXPECT_EQ(bytes, Inflated(Deflate(bytes), size)) << size;
    }
    EXPECT_LT(Deflate(std::string(100000, 'a')).size(), 1000u);
}

TEST(Packing, EncodesInBase64)
{
    EXPECT_EQ("", Base64(""));
    EXPECT_EQ("Zg==", Base64("f"));
    EXPECT_EQ("Zm8=", Base64("fo"));
    EXPECT_EQ("Zm9v", Base64("foo"));
    EXPECT_EQ("+/8A", Base64(std::string("\xFB\xFF\0", 3)));
}
