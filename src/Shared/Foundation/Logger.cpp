#include "Shared/Foundation/Logger.h"

#include "Shared/Foundation/BoundedFormat.h"
#include "Shared/Foundation/ThreadBuffers.h"

namespace Torvane
{
namespace
{
Logger* currentLogger = nullptr;
const char* logChannel = "(ALL) ";

using LevelOperation = void (Logger::*)(const char*, const char*, uint32_t, const char*, int32_t, uint32_t);

/// \return the message's length; that of the whole buffer after a cut.
uint32_t FormatMessageText(const char* format, va_list arguments)
{
    const int length = FormatBoundedV(GetMessageBuffer(), messageBufferSize, format, arguments);
    return length < 0 ? messageBufferSize : static_cast<uint32_t>(length);
}

void Log(LevelOperation operation, const char* file, int32_t line, const char* format, va_list arguments)
{
    const uint32_t length = FormatMessageText(format, arguments);
    (currentLogger->*operation)(logChannel, GetMessageBuffer(), length, file, line, 0);
}
} // namespace

void SetCurrentLogger(Logger* logger)
{
    currentLogger = logger;
}

Logger* GetCurrentLogger()
{
    return currentLogger;
}

void SetLogChannel(const char* channel)
{
    logChannel = channel;
}

void LogDebug(const char* file, int32_t line, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Log(&Logger::Debug, file, line, format, arguments);
    va_end(arguments);
}

void LogSuccess(const char* file, int32_t line, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Log(&Logger::Success, file, line, format, arguments);
    va_end(arguments);
}

void LogInfo(int32_t number, const char* file, int32_t line, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const uint32_t length = FormatMessageText(format, arguments);
    va_end(arguments);
    currentLogger->Info(logChannel, number, GetMessageBuffer(), length, file, line, 0);
}

void LogError(const char* file, int32_t line, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Log(&Logger::Error, file, line, format, arguments);
    va_end(arguments);
}

void LogErrorV(const char* file, int32_t line, const char* format, va_list arguments)
{
    Log(&Logger::Error, file, line, format, arguments);
}

void LogPanic(const char* file, int32_t line, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Log(&Logger::Panic, file, line, format, arguments);
    va_end(arguments);
}
} // namespace Torvane
