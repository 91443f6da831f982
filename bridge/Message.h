#pragma once

/// \file
/// One Blob as it went over a pipe, with bounds-checked access to what its fields refer to; a value, any thread
/// that owns it.

#include "Agent/Protocol/Blob.h"
#include "bridge/Recording/BlobLayout.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <string>
#include <utility>
#include <vector>

namespace Torvane::Bridge
{
/// A whole Blob, header and payload. An empty one (false) is what waits give that ended without a Blob.
class Message
{
public:
    Message() = default;

    /// \param bytes a whole header at least; \param time seconds since the `Link` was made.
    Message(Direction direction, double time, std::vector<uint8_t> bytes);

    explicit operator bool() const
    {
        return !bytes.empty();
    }

    Direction From() const
    {
        return direction;
    }

    /// Seconds since the `Link` was made: when the last byte had arrived, or when the sending began.
    double Time() const
    {
        return time;
    }

    /// Header and payload as they were on the pipe.
    const std::vector<uint8_t>& Bytes() const
    {
        return bytes;
    }

    BlobType Type() const;
    uint32_t PayloadSize() const;

    /// The first payload byte, at an address that is a multiple of 8.
    const uint8_t* Payload() const;

    /// The fixed part, or null if the payload is too short for it. The number isn't compared: see `Link::Expect`.
    template<typename Record>
    const Record* As() const
    {
        return PayloadSize() < sizeof(Record) ? nullptr : reinterpret_cast<const Record*>(Payload());
    }

    /// The text that a field of this message's payload refers to, without its terminator. Empty if the field
    /// holds 0, if it points outside of the payload, or if no terminator stands between there and the end.
    std::string AnsiString(const RelativeOffset& field) const;
    std::wstring Utf16String(const RelativeOffset& field) const;

    /// `size` bytes at what a field of this message's payload refers to; none if they aren't all in the payload.
    std::vector<uint8_t> Data(const RelativeOffset& field, uint64_t size) const;

    /// The elements of an array in this message's payload; none if they aren't all in the payload.
    template<typename Element>
    std::vector<Element> List(const RelativeArray& field) const
    {
        const std::vector<uint8_t> data = Data(field.offset, uint64_t(field.count) * sizeof(Element));
        std::vector<Element> elements(data.size() / sizeof(Element));
        memcpy(elements.data(), data.data(), elements.size() * sizeof(Element));
        return elements;
    }

private:
    template<typename Character>
    std::basic_string<Character> String(const RelativeOffset& field) const;

    /// How many payload bytes there are from the place that `field` refers to on; 0 if it refers to none.
    size_t BytesFrom(const RelativeOffset& field) const;

    Direction direction = Direction::FromAgent;
    double time = 0;
    std::vector<uint8_t> bytes;
};

/// A message whose fixed part is known: `reply->totalSize`, `reply.Data(reply->data, reply->totalSize)`.
template<typename Record>
class Received : public Message
{
public:
    Received() = default;

    /// Empty if `message` is, or if its payload is too short for the record.
    explicit Received(Message message)
        : Message(message.As<Record>() ? std::move(message) : Message())
    {
    }

    const Record& operator*() const
    {
        return *As<Record>();
    }

    const Record* operator->() const
    {
        return As<Record>();
    }
};
} // namespace Torvane::Bridge
