#include "tools/blobs/Packing.h"

#include <algorithm>
#include <limits.h>
#include <stdint.h>
#include <string.h>

#include <zlib.h>

namespace Torvane::Blobs
{
std::string Deflate(const std::string& bytes)
{
    constexpr int level = 4; // above it, long recordings take much longer and become hardly smaller
    constexpr size_t step = 1 << 20;
    z_stream stream = {};
    deflateInit(&stream, level);
    std::string deflated;
    for (size_t begin = 0; begin == 0 || begin < bytes.size(); begin += step)
    {
        const size_t count = std::min(step, bytes.size() - begin);
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data() + begin));
        stream.avail_in = static_cast<uInt>(count);
        char output[65536];
        do
        {
            stream.next_out = reinterpret_cast<Bytef*>(output);
            stream.avail_out = sizeof(output);
            deflate(&stream, begin + count == bytes.size() ? Z_FINISH : Z_NO_FLUSH);
            deflated.append(output, sizeof(output) - stream.avail_out);
        }
        while (stream.avail_out == 0);
    }
    deflateEnd(&stream);
    return deflated;
}

std::string Base64(const std::string& bytes)
{
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3)
    {
        const size_t count = std::min<size_t>(3, bytes.size() - i);
        uint32_t group = 0;
        for (size_t k = 0; k < 3; ++k)
        {
            group = group << 8 | (k < count ? static_cast<uint8_t>(bytes[i + k]) : 0);
        }
        for (size_t k = 0; k < 4; ++k)
        {
            text.push_back(k <= count ? digits[group >> (18 - 6 * k) & 63] : '=');
        }
    }
    return text;
}
} // namespace Torvane::Blobs
