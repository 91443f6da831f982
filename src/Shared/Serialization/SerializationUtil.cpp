#include "Shared/Serialization/SerializationUtil.h"

#include <string.h>
#include <utility>

namespace Torvane
{
namespace
{
bool IsNamed(const JsonObjectElement& member, const char* name)
{
    const size_t length = strlen(name);
    return member.name->length == length && memcmp(member.name->text, name, length) == 0;
}

void Assign(IntPreference& preference, const JsonValue& value)
{
    if (value.type == JsonType::Number)
    {
        preference.value = ReadInteger(*static_cast<const JsonNumber*>(value.payload));
    }
}

void Assign(StringPreference& preference, const JsonValue& value)
{
    if (value.type == JsonType::String)
    {
        const JsonString& string = *static_cast<const JsonString*>(value.payload);
        AssignText(preference, string.text, string.length);
    }
}

template<typename Preference>
void ReadSection(const JsonObject& section, Preference& preference)
{
    for (const JsonObjectElement* member = section.first; member != nullptr; member = member->next)
    {
        if (IsNamed(*member, preference.key))
        {
            Assign(preference, *member->value);
        }
    }
}

template<typename Preference>
void ReadRoot(const JsonValue& root, const char* section, Preference& preference)
{
    // Volatile: otherwise the compiler concludes from the access that the pointer isn't null, so the root an object.
    const JsonObject* const volatile object = AsJsonObject(root);
    for (const JsonObjectElement* member = object->first; member != nullptr; member = member->next)
    {
        const JsonObject* candidate = AsJsonObject(*member->value);
        if (candidate != nullptr && IsNamed(*member, section))
        {
            ReadSection(*candidate, preference);
        }
    }
}
} // namespace

int32_t ReadInteger(const JsonNumber& number)
{
    const char* digit = number.text;
    const bool negative = *digit == '-';
    if (negative || *digit == '+')
    {
        ++digit;
    }
    uint64_t value = 0;
    for (; *digit >= '0' && *digit <= '9'; ++digit)
    {
        value = value * 10 + static_cast<uint64_t>(*digit - '0');
    }
    return static_cast<int32_t>(static_cast<uint32_t>(negative ? 0 - value : value));
}

void AssignText(StringPreference& preference, const char* text, uint32_t length)
{
    OwnedAllocation copy(Allocate(length + 1));
    char* value = static_cast<char*>(copy.Get().pointer);
    memcpy(value, text, length);
    value[length] = '\0';
    preference.value = std::move(copy);
}

void ReadPreference(const JsonValue& root, const char* section, IntPreference& preference)
{
    ReadRoot(root, section, preference);
}

void ReadPreference(const JsonValue& root, const char* section, StringPreference& preference)
{
    ReadRoot(root, section, preference);
}
} // namespace Torvane
