#include "bridge/Message.h"

#include <string.h>

namespace Torvane::Bridge
{
namespace
{
BlobHeader HeaderOf(const std::vector<uint8_t>& bytes)
{
    BlobHeader header;
    memcpy(&header, bytes.data(), sizeof(header));
    return header;
}
} // namespace

Message::Message(Direction messageDirection, double messageTime, std::vector<uint8_t> messageBytes)
    : direction(messageDirection)
    , time(messageTime)
    , bytes(std::move(messageBytes))
{
}

Message Message::None(std::string reason)
{
    Message none;
    none.reason = std::move(reason);
    return none;
}

BlobType Message::Type() const
{
    return HeaderOf(bytes).type;
}

uint32_t Message::PayloadSize() const
{
    return bytes.size() < sizeof(BlobHeader) ? 0 : static_cast<uint32_t>(bytes.size() - sizeof(BlobHeader));
}

const uint8_t* Message::Payload() const
{
    return bytes.data() + sizeof(BlobHeader);
}

size_t Message::BytesFrom(const RelativeOffset& field) const
{
    const uintptr_t begin = reinterpret_cast<uintptr_t>(Payload());
    const uintptr_t end = begin + PayloadSize();
    const uintptr_t position = reinterpret_cast<uintptr_t>(&field);
    if (field.value == 0 || position < begin || position >= end || end - position < field.value)
    {
        return 0;
    }
    return end - position - field.value;
}

std::vector<uint8_t> Message::Data(const RelativeOffset& field, uint64_t size) const
{
    if (BytesFrom(field) < size)
    {
        return {};
    }
    const uint8_t* data = Follow<uint8_t>(field);
    return {data, data + size};
}

template<typename Character>
std::basic_string<Character> Message::String(const RelativeOffset& field) const
{
    const size_t available = BytesFrom(field) / sizeof(Character);
    std::basic_string<Character> string;
    for (size_t i = 0; i < available; ++i)
    {
        Character character;
        memcpy(&character, Follow<uint8_t>(field) + i * sizeof(Character), sizeof(Character));
        if (character == 0)
        {
            return string;
        }
        string.push_back(character);
    }
    return {};
}

std::string Message::AnsiString(const RelativeOffset& field) const
{
    return String<char>(field);
}

std::wstring Message::Utf16String(const RelativeOffset& field) const
{
    return String<wchar_t>(field);
}
} // namespace Torvane::Bridge
