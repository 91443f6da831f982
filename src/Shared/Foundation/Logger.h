#pragma once

/// \file
/// The log: one current `Logger` and the functions that write to it. Any thread.
///
/// A log call takes no lock and allocates nothing. It formats into this thread's message buffer and cuts what doesn't
/// fit into 32768 bytes. Nothing may log before a logger was set or after it was removed.

#include "Shared/Foundation/CheckedFormat.h"

#include <stdarg.h>
#include <stdint.h>

/// Source position of a log call: the file's base name and the line.
#define TVN_HERE __FILE_NAME__, __LINE__

namespace Torvane
{
/// Takes formatted messages of six levels. `text` isn't necessarily terminated at `length`, which is in bytes. The
/// channel and the integer of `Info` are printed by none. `separateText` is 0 in every call that we make.
class Logger
{
public:
    virtual void Debug(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
                       uint32_t separateText) = 0;
    virtual void Success(const char* channel, const char* text, uint32_t length, const char* file,
                         int32_t line, uint32_t separateText) = 0;
    virtual void Info(const char* channel, int32_t number, const char* text, uint32_t length,
                      const char* file, int32_t line, uint32_t separateText) = 0;
    virtual void Warning(const char* channel, const char* text, uint32_t length, const char* file,
                         int32_t line, uint32_t separateText) = 0;
    virtual void Error(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
                       uint32_t separateText) = 0;
    virtual void Panic(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
                       uint32_t separateText) = 0;
    virtual void Reserved() = 0;

protected:
    ~Logger() = default;
};

enum class LogLevel : uint32_t
{
    Debug,
    Success,
    Info,
    Warning,
    Error,
    Panic,
};

/// The arguments of a `Logger`'s operation that somebody reads.
struct LogMessage
{
    LogLevel level;
    const char* text;
    uint32_t length; ///< in bytes
    const char* file;
    int32_t line;
    uint32_t separateText;
};

/// A logger whose six operations are one: `void Write(const LogMessage&)` of the class that derives from it.
template<typename Derived>
class MessageLogger : public Logger
{
public:
    void Debug(const char*, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) final
    {
        static_cast<Derived*>(this)->Write({LogLevel::Debug, text, length, file, line, separateText});
    }
    void Success(const char*, const char* text, uint32_t length, const char* file, int32_t line,
                 uint32_t separateText) final
    {
        static_cast<Derived*>(this)->Write({LogLevel::Success, text, length, file, line, separateText});
    }
    void Info(const char*, int32_t, const char* text, uint32_t length, const char* file, int32_t line,
              uint32_t separateText) final
    {
        static_cast<Derived*>(this)->Write({LogLevel::Info, text, length, file, line, separateText});
    }
    void Warning(const char*, const char* text, uint32_t length, const char* file, int32_t line,
                 uint32_t separateText) final
    {
        static_cast<Derived*>(this)->Write({LogLevel::Warning, text, length, file, line, separateText});
    }
    void Error(const char*, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) final
    {
        static_cast<Derived*>(this)->Write({LogLevel::Error, text, length, file, line, separateText});
    }
    void Panic(const char*, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) final
    {
        static_cast<Derived*>(this)->Write({LogLevel::Panic, text, length, file, line, separateText});
    }
    void Reserved() final
    {
    }

protected:
    ~MessageLogger() = default;
};

/// Does nothing.
class NullLogger final : public MessageLogger<NullLogger>
{
public:
    void Write(const LogMessage&)
    {
    }
};

/// The logger that all log calls write to; owned by whoever set it. Written at startup and shutdown only.
void SetCurrentLogger(Logger* logger);
Logger* GetCurrentLogger();

/// The channel that every logger gets, a static string; "(ALL) " until it is set.
void SetLogChannel(const char* channel);

/// What the checked functions forward to. `format` has to fit the arguments.
namespace Unchecked
{
void Log(LogLevel level, int32_t number, const char* file, int32_t line, const char* format, ...);
void LogV(LogLevel level, int32_t number, const char* file, int32_t line, const char* format,
          va_list arguments);
} // namespace Unchecked

/// Each logs one message at its level; see `CheckedFormat` for the format. The first parameters are `TVN_HERE`.
template<typename... Arguments>
void LogDebug(const char* file, int32_t line, FormatOf<Arguments...> format, Arguments... arguments)
{
    Unchecked::Log(LogLevel::Debug, 0, file, line, format.Get(), arguments...);
}

template<typename... Arguments>
void LogSuccess(const char* file, int32_t line, FormatOf<Arguments...> format, Arguments... arguments)
{
    Unchecked::Log(LogLevel::Success, 0, file, line, format.Get(), arguments...);
}

/// \param number 0 in every call.
template<typename... Arguments>
void LogInfo(int32_t number, const char* file, int32_t line, FormatOf<Arguments...> format,
             Arguments... arguments)
{
    Unchecked::Log(LogLevel::Info, number, file, line, format.Get(), arguments...);
}

template<typename... Arguments>
void LogError(const char* file, int32_t line, FormatOf<Arguments...> format, Arguments... arguments)
{
    Unchecked::Log(LogLevel::Error, 0, file, line, format.Get(), arguments...);
}

template<typename... Arguments>
void LogPanic(const char* file, int32_t line, FormatOf<Arguments...> format, Arguments... arguments)
{
    Unchecked::Log(LogLevel::Panic, 0, file, line, format.Get(), arguments...);
}
} // namespace Torvane
