#pragma once

/// \file
/// Preferences in memory, and how a JSON document gives them their values. Any thread, each preference its owner's.

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
/// 12.7 gives 12 and 1e3 gives 1. Overflow wraps around.
int32_t ReadInteger(const JsonNumber& number);

/// Takes over a copy of the text, zero-terminated, and frees the present value.
/// \param length in bytes, without a terminator.
void AssignText(StringPreference& preference, const char* text, uint32_t length);

/// Gives a preference the value that its key has in a section, a member of the root object that is an object itself.
///
/// Sections and keys are compared byte by byte. A value of another type than the preference's is passed over without
/// a word; of several the last one stands, and with none the preference stays as it is.
/// \param root has to be an object: anything else is read through a null pointer, which faults.
void ReadPreference(const JsonValue& root, const char* section, IntPreference& preference);
void ReadPreference(const JsonValue& root, const char* section, StringPreference& preference);
} // namespace Torvane
