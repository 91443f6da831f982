#pragma once

/// \file
/// Reads a payload by the table of its Blob's fields; any thread, any platform.
///
/// Payloads can have any content: a field that is missing, or refers to data outside of the payload, is reported as a
/// problem of that field.

#include "bridge/Recording/BlobLayout.h"

#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// A field with its value. Offsets count from the first payload byte.
struct DecodedField
{
    std::string name; ///< as in `Blob.h`; "[0]" and so on for the elements of a list
    FieldKind kind = FieldKind::Bytes;
    size_t offset = 0;     ///< the field's own bytes
    size_t size = 0;       ///< bytes; cut at the end of the payload
    size_t itemOffset = 0; ///< the data that the field refers to; the field itself if there is none
    size_t itemSize = 0;   ///< bytes
    uint64_t number = 0;   ///< of numbers and addresses; sign-extended
    std::string text;      ///< of strings, UTF-8
    const NamedValue* values = nullptr;
    bool isAbsent = false;              ///< the field is 0: it refers to no data
    std::string problem;                ///< why there is no value; empty if there is one
    std::vector<DecodedField> children; ///< of records and lists
};

/// The fields of a payload, in their order. For a Blob without a layout the result is one field "payload", or none if the
/// payload is empty.
std::vector<DecodedField> DecodePayload(BlobType type, const uint8_t* payload, size_t size);

/// The field of this name, or null.
const DecodedField* FindField(const std::vector<DecodedField>& fields, const std::string& name);
} // namespace Torvane::Bridge
