#pragma once

/// \file
/// What the Agent reads of the user's preferences: how long each pipe waits for the Bridge. Receiver thread, during its
/// initialization.

#include "Shared/Foundation/FixedString.h"
#include "Shared/Serialization/SerializationUtil.h"

namespace Torvane
{
/// `timeout`, in milliseconds, with its default. Files can make it negative.
IntPreference MakeGlobalPreferences();

/// Reads the number `timeout` in the section `Network` of a file; the log is that of `OpenJsonFile`.
/// \return whether the file was read and parsed, even if it lacks the key.
bool LoadGlobalPreferences(IntPreference& timeout, const FixedWideString& path);

/// Reads the three files of the Broker's folder, each overriding the ones before it. Logs each attempt and each
/// success at Debug level; a file that is missing is no failure.
void LoadAllGlobalPreferences(IntPreference& timeout, const FixedWideString& brokerFolder);
} // namespace Torvane
