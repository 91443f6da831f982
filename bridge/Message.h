#pragma once

/// \file
/// A sent or received Blob with bounds-checked access to the data that its fields refer to; a value type, used by one
/// thread at a time.

#include "Agent/Protocol/Blob.h"
#include "bridge/BlobName.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <string>
#include <utility>
#include <vector>

namespace Torvane::Bridge
{
/// A whole Blob, header and payload. Waits that end without a Blob return an empty one, which converts to false and has
/// the reason.
class Message
{
public:
    Message() = default;

    /// An empty message.
    static Message None(std::string reason);

    /// \param bytes a whole header at least; \param time seconds since the `Link` was created.
    Message(Direction direction, double time, std::vector<uint8_t> bytes);

    explicit operator bool() const
    {
        return !bytes.empty();
    }

    /// Why the message is empty.
    const std::string& Reason() const
    {
        return reason;
    }

    Direction From() const
    {
        return direction;
    }

    /// Seconds since the `Link` was created: when the last byte was received, or before the first one was sent.
    double Time() const
    {
        return time;
    }

    /// Header and payload as they were sent.
    const std::vector<uint8_t>& Bytes() const
    {
        return bytes;
    }

    BlobType Type() const;
    uint32_t PayloadSize() const;

    /// The first payload byte, at an address that is a multiple of 8.
    const uint8_t* Payload() const;

    /// The fixed part, or null if the payload is too short for it. The type isn't compared: see `Link::WaitFor`.
    template<typename Record>
    const Record* As() const
    {
        return PayloadSize() < sizeof(Record) ? nullptr : reinterpret_cast<const Record*>(Payload());
    }

    /// The string that a field of this message's payload refers to, without its terminator. Empty if the field is 0 or
    /// points outside of the payload, or if there is no terminator before the payload's end.
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

    /// How many bytes the payload has from the position that `field` refers to; 0 if it refers to none.
    size_t BytesFrom(const RelativeOffset& field) const;

    Direction direction = Direction::FromAgent;
    double time = 0;
    std::vector<uint8_t> bytes;
    std::string reason;
};

/// A message with a typed fixed part: `reply->totalSize`, `reply.Data(reply->data, reply->totalSize)`.
template<typename Record>
class Received : public Message
{
public:
    Received() = default;

    /// Empty if `message` is, or if its payload is too short for the record.
    explicit Received(Message message)
        : Message(!message || message.As<Record>() ? std::move(message)
                                                   : None(BlobName(message.Type()) + " is too short"))
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
