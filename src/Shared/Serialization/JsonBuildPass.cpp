#include "Shared/Serialization/JsonWalk.h"

#include <stddef.h>

namespace Torvane
{
namespace
{
struct JsonBuilder : JsonPass
{
    static constexpr bool builds = true;

    /// Writes a text where the ones before it end.
    struct Text
    {
        char* to;
        const char* dataEnd;

        void Put(uint32_t byte)
        {
            *to++ = static_cast<char>(byte);
        }

        /// Writes the characters before the first stop.
        ///
        /// Whole groups are written, also what follows the stop in them. That is safe as long as sixteen bytes are left
        /// before the end of the texts: `to` never passes what pass one has counted, texts are written in their order,
        /// and nothing else is between `to` and that end. What a group leaves after the stop is therefore overwritten
        /// by the text that belongs there.
        template<typename Stops>
        const uint8_t* PutUpTo(Stops stops, const uint8_t* at, const uint8_t* end)
        {
            for (; CountLeft(at, end) >= jsonGroupSize && dataEnd - to >= ptrdiff_t{jsonGroupSize};
                 at += jsonGroupSize, to += jsonGroupSize)
            {
                const __m128i group = LoadGroup(at);
                const uint32_t mask = stops(group);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(to), group);
                if (mask != 0)
                {
                    to += FirstOf(mask);
                    return at + FirstOf(mask);
                }
            }
            for (; at != end && !IsStop(stops, *at); ++at)
            {
                Put(*at);
            }
            return at;
        }
    };

    /// Of the block's texts. Pass two works without their size as well: groups are then never written.
    const char* dataEnd;

    explicit JsonBuilder(const JsonParseState& state)
        : JsonPass(state)
        , dataEnd(state.data + state.dataSize)
    {
    }

    template<typename Record>
    Record* Take(uint32_t size)
    {
        Record* record = reinterpret_cast<Record*>(dom);
        dom += size;
        return record;
    }

    Text StartText() const
    {
        return {data, dataEnd};
    }

    template<typename Record>
    void EndText(Text& text, Record* record)
    {
        *record = {data, static_cast<uint32_t>(text.to - data)};
        text.Put('\0');
        data = text.to;
    }

    template<typename Record>
    void Place(const uint8_t* at, Record* record) const
    {
        if (IsSet(*this, JsonOption::RecordPositions))
        {
            const uint32_t place = CountLeft(source, at);
            *reinterpret_cast<JsonPosition*>(record + 1) = {place, lineNumber, place - lineOffset};
        }
    }

    static void SetValue(JsonValue* value, void* payload, JsonType type)
    {
        *value = {payload, type};
    }
};
} // namespace

void BuildJson(JsonParseState& state, uint32_t withoutBraces, JsonValue& value)
{
    JsonBuilder builder(state);
    ReadRoot(builder, withoutBraces != 0, &value);
    state = builder;
}
} // namespace Torvane
