#pragma once

/// \file
/// Converts strings and bytes to the encodings of recordings, UTF-8 and hexadecimal digits; any thread, any platform.

#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// UTF-8 of `count` UTF-16LE units. An unpaired surrogate becomes U+FFFD.
std::string Utf8FromUtf16(const uint8_t* units, size_t count);

/// The string itself if it is valid UTF-8. Each byte that isn't part of a valid sequence becomes U+FFFD.
std::string ValidUtf8(const std::string& text);

/// Appends a string of JSON: in quotes, with control characters escaped. \param text valid UTF-8.
void AppendQuoted(std::string& json, const std::string& text);

/// Two lower-case digits for each byte, without separators.
std::string HexFromBytes(const uint8_t* bytes, size_t size);
void AppendHex(std::string& text, const uint8_t* bytes, size_t size);

/// The reverse, for digits of either case. \return false for an odd number of characters or a character that is no digit.
bool BytesFromHex(const std::string& hex, std::vector<uint8_t>& bytes);

/// "0x00401000": at least `digits` upper-case digits.
std::string HexNumber(uint64_t number, int digits);
} // namespace Torvane::Bridge
