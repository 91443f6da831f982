#pragma once

/// \file
/// What the host's threads send, as both sides know it: each item follows from process, thread and sequence number, so
/// that the receiver compares every byte. Any thread.

#include <stdint.h>
#include <stdlib.h>

#include <string>

namespace Torvane::Soak
{
/// A checksum of three numbers.
inline uint32_t Mix(uint32_t a, uint32_t b, uint32_t c)
{
    uint32_t hash = a * 0x9E3779B1u ^ b * 0x85EBCA77u ^ c * 0xC2B2AE3Du;
    for (const uint32_t factor : {0x7FEB352Du, 0x846CA68Bu})
    {
        hash = (hash ^ hash >> 15) * factor;
    }
    return hash ^ hash >> 16;
}

inline uint8_t DataAt(uint32_t process, uint32_t offset)
{
    return static_cast<uint8_t>(Mix(process, 0xDA7A, offset));
}

enum class ItemKind : uint32_t
{
    LogNarrow,
    LogWide,
    Bool,
    Int,
    String,
    Shortcut,
};

struct Item
{
    ItemKind kind;
    uint32_t hash;
    uint32_t
        preference;   ///< thread and the lower 24 bits of the sequence number; kinds that have no text alone
    std::string text; ///< "thread:sequence:hash:" and up to 3,000 characters more
};

inline Item MakeItem(uint32_t process, uint32_t thread, uint32_t sequence)
{
    Item item = {};
    item.hash = Mix(process, thread, sequence);
    item.kind = static_cast<ItemKind>(item.hash % 6);
    item.preference = thread << 24 | (sequence & 0xFFFFFF);
    item.text =
        std::to_string(thread) + ":" + std::to_string(sequence) + ":" + std::to_string(item.hash) + ":";
    // Lengths for every pool of the Agent come early, so that it needs little more memory later.
    const uint32_t longest = item.hash % 64 == 0 ? 3000 : 300;
    const uint32_t size = sequence < 280 ? (sequence * 8 + thread) % 1104 : (item.hash >> 8) % longest;
    for (uint32_t i = 0; i < size; ++i)
    {
        item.text.push_back(static_cast<char>('!' + (item.hash + i * 7) % 90));
    }
    return item;
}

/// Thread and sequence number at the front of a text.
struct Origin
{
    uint32_t thread;
    uint32_t sequence;
};

inline Origin OriginOf(const std::string& text)
{
    const size_t colon = text.find(':');
    const char* sequence = colon == std::string::npos ? "0" : text.c_str() + colon + 1;
    return {static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 10)),
            static_cast<uint32_t>(strtoul(sequence, nullptr, 10))};
}

inline Origin OriginOf(uint32_t preference)
{
    return {preference >> 24, preference & 0xFFFFFF};
}
} // namespace Torvane::Soak
