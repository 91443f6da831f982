#pragma once

/// \file
/// The outcome of an operation: a value, or the reason why there is none; value types, used by one thread at a time.

#include <optional>
#include <stdint.h>
#include <string>
#include <utility>

namespace Torvane::Bridge
{
/// Why an operation has failed.
struct Failure
{
    std::string reason; ///< UTF-8, a sentence without its capital letter and its full stop

    /// The code that the OS, or the Agent by its Blob, has given. 0 if there is none.
    uint32_t code = 0;
};

/// The failure of a function of the OS, with the calling thread's last error. \param reason what couldn't be done.
Failure OSFailure(const std::string& reason);

/// A value, or a `Failure`. Converts to true if there is a value.
///
///     const Result<LoadedPatch> patch = LoadPatch(session, path, limit);
///     if (!patch)
///     {
///         puts(patch.Reason().c_str());
///     }
template<typename Value = void>
class [[nodiscard]] Result
{
public:
    Result(Value itsValue) // NOLINT(google-explicit-constructor)
        : value(std::move(itsValue))
    {
    }

    Result(Failure itsFailure) // NOLINT(google-explicit-constructor)
        : failure(std::move(itsFailure))
    {
    }

    explicit operator bool() const
    {
        return value.has_value();
    }

    const Value& operator*() const
    {
        return *value;
    }

    const Value* operator->() const
    {
        return &*value;
    }

    /// Empty if there is a value.
    const std::string& Reason() const
    {
        return failure.reason;
    }

    /// To be returned by a caller whose own value has another type.
    const Failure& Why() const
    {
        return failure;
    }

private:
    std::optional<Value> value;
    Failure failure;
};

/// Success, or a `Failure`.
template<>
class [[nodiscard]] Result<void>
{
public:
    Result() = default;

    Result(Failure itsFailure) // NOLINT(google-explicit-constructor)
        : failure(std::move(itsFailure))
    {
    }

    explicit operator bool() const
    {
        return !failure.has_value();
    }

    const std::string& Reason() const
    {
        static const std::string none;
        return failure ? failure->reason : none;
    }

    const Failure& Why() const
    {
        return *failure;
    }

private:
    std::optional<Failure> failure;
};
} // namespace Torvane::Bridge
