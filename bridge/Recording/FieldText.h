#pragma once

/// \file
/// Decoded fields as text for people and as JSON for programs; any thread, any platform.

#include "bridge/Recording/BlobDecoder.h"

#include <nlohmann/json_fwd.hpp>

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// The value in one line: `4 (Error)`, `0x00401000`, `"a text"`, `3 records`, `none`.
std::string FieldText(const DecodedField& field, const uint8_t* payload);

/// What of a payload is worth seeing in one line: `level=4 (Error) text="..."`. Padding, bytes that aren't read, and
/// what refers to nothing are left out. Whole, however long.
std::string FieldSummary(const std::vector<DecodedField>& fields, const uint8_t* payload);

/// An object of all fields but padding, in their order: numbers; addresses and what is best read in hexadecimal as
/// "0x..."; bytes and data in hexadecimal digits; texts; lists as arrays, records as objects; null for what refers to
/// nothing; {"problem": "..."} for what can't be read.
nlohmann::ordered_json FieldsAsJson(const std::vector<DecodedField>& fields, const uint8_t* payload);
} // namespace Torvane::Bridge
