#pragma once

/// \file
/// Bytes written at offsets, as a document describes a Blob, independent of the records
/// in `Blob.h`; a value.

#include <stdint.h>
#include <string.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
/// Grows as needed; bytes that aren't written are 0. Integers are little-endian.
class ByteImage
{
public:
    ByteImage() = default;

    explicit ByteImage(size_t size)
        : bytes(size)
    {
    }

    ByteImage& U8(size_t offset, uint8_t value)
    {
        return Put(offset, &value, sizeof(value));
    }

    ByteImage& U32(size_t offset, uint32_t value)
    {
        return Put(offset, &value, sizeof(value));
    }

    ByteImage& U64(size_t offset, uint64_t value)
    {
        return Put(offset, &value, sizeof(value));
    }

    ByteImage& Put(size_t offset, const void* data, size_t size)
    {
        if (bytes.size() < offset + size)
        {
            bytes.resize(offset + size);
        }
        memcpy(bytes.data() + offset, data, size);
        return *this;
    }

    /// Appends a string with its terminator, and writes its distance from `field` to `field`.
    ByteImage& Text(size_t field, const std::string& text)
    {
        return Item(field, text.c_str(), text.size() + 1);
    }

    ByteImage& Text(size_t field, const std::wstring& text)
    {
        return Item(field, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }

    ByteImage& Item(size_t field, const void* data, size_t size)
    {
        U32(field, static_cast<uint32_t>(bytes.size() - field));
        return Put(bytes.size(), data, size);
    }

    const std::vector<uint8_t>& Bytes() const
    {
        return bytes;
    }

    /// The same after a header of payload size and number.
    std::vector<uint8_t> Blob(uint32_t type) const
    {
        ByteImage blob;
        blob.U32(0, static_cast<uint32_t>(bytes.size())).U32(4, type);
        return blob.Put(8, bytes.data(), bytes.size()).Bytes();
    }

private:
    std::vector<uint8_t> bytes;
};
} // namespace Torvane::Testing
