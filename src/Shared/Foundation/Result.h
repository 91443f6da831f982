#pragma once

/// \file
/// The return type of operations that can fail, and its makers. Any thread.

#include "Shared/Foundation/Logger.h"

#include <stdint.h>

namespace Torvane
{
/// A failure on its way into a `Result` of any payload.
struct Failure
{
    const char* error; ///< the format as written at the call site, static, with its placeholders unfilled
    uint32_t code;
};

/// A value or a failure. It is a success if `error` is null, and by nothing else: a `Result<bool>` can be a
/// success with the value false.
template<typename Payload>
struct Result
{
    const char* error;
    union
    {
        Payload payload; ///< on success
        uint32_t code;   ///< on failure: the OS's last error, or the wait's code
    };

    Result(const Failure& failure)
        : error(failure.error)
        , payload()
    {
        code = failure.code;
    }

    explicit Result(const Payload& value)
        : error(nullptr)
        , payload(value)
    {
    }
};

/// A successful `Result` that holds `value`.
template<typename Payload>
Result<Payload> Success(const Payload& value)
{
    return Result<Payload>(value);
}

/// Logs the filled format and the code, at Debug level and under this header's position.
/// \return a failure with the format and the code.
template<typename... Arguments>
Failure MakeError(uint32_t code, FormatOf<Arguments...> format, Arguments... arguments)
{
    LogDebug(TVN_HERE, format, arguments...);
    LogDebug(TVN_HERE, "Error: %d, 0x%X", static_cast<int32_t>(code), code);
    return {format.Get(), code};
}

/// Logs the filled message at Panic level, under this header's position, if `result` is a failure.
/// \return the payload; after a failure its first word holds the error code.
template<typename Payload, typename... Arguments>
Payload Expect(const Result<Payload>& result, FormatOf<Arguments...> message, Arguments... arguments)
{
    if (result.error != nullptr)
    {
        LogPanic(TVN_HERE, message, arguments...);
    }
    return result.payload;
}

/// The same, but \return `fallback` after a failure.
template<typename Payload, typename... Arguments>
Payload ExpectOr(const Payload& fallback, const Result<Payload>& result, FormatOf<Arguments...> message,
                 Arguments... arguments)
{
    Expect(result, message, arguments...);
    return result.error == nullptr ? result.payload : fallback;
}
} // namespace Torvane
