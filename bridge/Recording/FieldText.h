#pragma once

/// \file
/// Formats decoded fields as readable text and as JSON; any thread, any platform.

#include "bridge/Recording/BlobDecoder.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// The value in one line: `4 (Error)`, `0x00401000`, `"a string"`, `3 records`, `none`.
std::string FieldText(const DecodedField& field, const uint8_t* payload);

/// The fields in one line of any length: `level=4 (Error) text="..."`. Omits padding, bytes that the Agent doesn't read,
/// and fields that refer to no data.
std::string FieldSummary(const std::vector<DecodedField>& fields, const uint8_t* payload);

/// Appends an object in JSON of all fields but padding, in their order: numbers; addresses and hexadecimal values as
/// "0x..."; bytes and data as hexadecimal digits; strings; lists as arrays; records as objects; null for a field that
/// refers to no data; {"problem": "..."} for one that can't be decoded.
void AppendFieldsAsJson(std::string& json, const std::vector<DecodedField>& fields, const uint8_t* payload);
} // namespace Torvane::Bridge
