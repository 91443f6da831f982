#pragma once

/// \file
/// Reads a payload by the table of its Blob's fields; any thread, any platform.
///
/// Payloads may be anything: a field that isn't there, or that refers to something outside of the payload, is told
/// as a problem of that field.

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
    size_t itemOffset = 0; ///< what the field refers to; the field itself if it refers to nothing
    size_t itemSize = 0;   ///< bytes
    uint64_t number = 0;   ///< of numbers and addresses; the sign extended
    std::string text;      ///< of texts, UTF-8
    const NamedValue* values = nullptr;
    bool isAbsent = false;              ///< the field refers to nothing
    std::string problem;                ///< why there is no value; empty if there is one
    std::vector<DecodedField> children; ///< of records and lists
};

/// The fields of a payload in their order. A number without a layout gives one field "payload", as does a
/// payload where there should be none; an empty payload gives none then.
std::vector<DecodedField> DecodePayload(BlobType type, const uint8_t* payload, size_t size);

/// The field of this name, or null.
const DecodedField* FindField(const std::vector<DecodedField>& fields, const std::string& name);
} // namespace Torvane::Bridge
