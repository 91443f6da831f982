#pragma once

/// \file
/// Preferences in memory, and how they are read from a JSON document. Any thread, each preference its owner's.

#include "Shared/Memory/OwnedAllocation.h"
#include "Shared/Serialization/JsonReader.h"

#include <stdint.h>

namespace Torvane
{
struct StringPreference
{
    const char* key;       ///< static
    OwnedAllocation value; ///< zero-terminated, none at first

    const char* GetText() const
    {
        return static_cast<const char*>(value.Get().pointer);
    }
};

struct IntPreference
{
    const char* key; ///< static
    int32_t value;
};

/// Reads a number's text simply: an optional sign, then digits up to the first character that is none, so that
/// 12.7 is 12 and 1e3 is 1. Overflow wraps around.
int32_t ReadInteger(const JsonNumber& number);

/// Sets the value to a copy of the text, zero-terminated, and frees the present value.
/// \param length in bytes, without a terminator.
void AssignText(StringPreference& preference, const char* text, uint32_t length);

/// Sets a preference to the value that its key has in a section, a member of the root object that is an object itself.
///
/// Sections and keys are compared byte by byte. A value of another type than the preference's is skipped silently;
/// the last one of several is used, and with none the preference is unchanged.
/// \param root must be an object: anything else is read through a null pointer, which faults.
void ReadPreference(const JsonValue& root, const char* section, IntPreference& preference);
void ReadPreference(const JsonValue& root, const char* section, StringPreference& preference);
} // namespace Torvane
