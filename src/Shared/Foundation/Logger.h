#pragma once

/// \file
/// The log: one current `Logger` and the front-ends that write to it. Any thread.
///
/// A log call takes no lock and allocates nothing. It formats into this thread's message buffer, and cuts what
/// doesn't fit into 32768 bytes. Nothing may log before a logger was set or after it was taken away.

#include <stdarg.h>
#include <stdint.h>

/// Source position of a log call: the file's base name and the line.
#define TVN_HERE __FILE_NAME__, __LINE__

namespace Torvane
{
/// Takes formatted messages of six levels. `text` isn't necessarily terminated at `length`, which is in bytes;
/// the channel and the integer of `Info` are printed by none; `separateText` is 0 in every call that we make.
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

/// Does nothing.
class NullLogger final : public Logger
{
public:
    void Debug(const char*, const char*, uint32_t, const char*, int32_t, uint32_t) override
    {
    }
    void Success(const char*, const char*, uint32_t, const char*, int32_t, uint32_t) override
    {
    }
    void Info(const char*, int32_t, const char*, uint32_t, const char*, int32_t, uint32_t) override
    {
    }
    void Warning(const char*, const char*, uint32_t, const char*, int32_t, uint32_t) override
    {
    }
    void Error(const char*, const char*, uint32_t, const char*, int32_t, uint32_t) override
    {
    }
    void Panic(const char*, const char*, uint32_t, const char*, int32_t, uint32_t) override
    {
    }
    void Reserved() override
    {
    }
};

/// The logger that all front-ends write to; owned by whoever set it. Written at startup and shutdown only.
void SetCurrentLogger(Logger* logger);
Logger* GetCurrentLogger();

/// The channel text that every sink call gets, a static text; "(ALL) " until it is set.
void SetLogChannel(const char* channel);

/// Front-ends: printf conventions of the platform (`%hs` narrow, `%ls` wide, written as UTF-8; see
/// `FormatBounded`). Every call of `LogInfo` gives 0 as its first argument.
void LogDebug(const char* file, int32_t line, const char* format, ...);
void LogSuccess(const char* file, int32_t line, const char* format, ...);
void LogInfo(int32_t number, const char* file, int32_t line, const char* format, ...);
void LogError(const char* file, int32_t line, const char* format, ...);
void LogErrorV(const char* file, int32_t line, const char* format, va_list arguments);
void LogPanic(const char* file, int32_t line, const char* format, ...);
} // namespace Torvane
