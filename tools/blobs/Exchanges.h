#pragma once

/// \file
/// Finds questions and their answers, and failures; for the command's only thread.

#include "tools/blobs/Operations.h"

#include <vector>

namespace Torvane::Blobs
{
/// A request and its result, an exception and its decision, a patch and whether it was loaded.
struct Exchange
{
    size_t question = 0; ///< index into the recording's Blobs
    size_t answer = 0;   ///< the same; always greater
};

/// By question, in ascending order. A Blob belongs to one exchange at most.
std::vector<Exchange> FindExchanges(const Recording& recording, const Operations& operations);

/// How a Blob reports a failure.
enum class Failure : uint8_t
{
    None,
    LoggedError,
    Exception,
    InvalidPayload, ///< a field has no value, see `Bridge::DecodedField::problem`
};
constexpr const char* failureNames[] = {"", "logged error", "exception", "invalid payload"};

Failure FailureOf(const RecordedBlob& blob);
} // namespace Torvane::Blobs
