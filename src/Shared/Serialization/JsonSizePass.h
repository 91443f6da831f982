#pragma once

/// \file
/// Pass one of the JSON reader: checks the text and adds up what its tree takes. For the reader and its tests; any
/// thread, each with its own state.

#include "Shared/Serialization/JsonWalk.h"

namespace Torvane
{
struct JsonSizer : JsonPass
{
    static constexpr bool builds = false;

    struct Text
    {
        uint32_t length;

        void Put(uint32_t)
        {
            ++length;
        }

        template<typename Stops>
        const uint8_t* PutUpTo(Stops stops, const uint8_t* at, const uint8_t* end)
        {
            const uint8_t* stop = FindStop(stops, at, end);
            length += CountLeft(at, stop);
            return stop;
        }
    };

    explicit JsonSizer(const JsonParseState& state)
        : JsonPass(state)
    {
    }

    static void AddTo(uint32_t& size, uint32_t more)
    {
        size = more > UINT32_MAX - size ? UINT32_MAX : size + more;
    }

    template<typename Record>
    Record* Take(uint32_t size)
    {
        AddTo(domSize, size);
        return nullptr;
    }

    Text StartText() const
    {
        return {0};
    }

    template<typename Record>
    void EndText(const Text& text, Record*)
    {
        AddTo(dataSize, text.length);
        AddTo(dataSize, 1);
    }

    static void Place(const uint8_t*, void*)
    {
    }

    static void SetValue(JsonValue*, void*, JsonType)
    {
    }
};
} // namespace Torvane
