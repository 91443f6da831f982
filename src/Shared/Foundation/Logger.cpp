#include "Shared/Foundation/Logger.h"

#include "Shared/Foundation/BoundedFormat.h"
#include "Shared/Foundation/ThreadBuffers.h"

namespace Torvane
{
namespace
{
Logger* currentLogger = nullptr;
const char* logChannel = "(ALL) ";
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

namespace Unchecked
{
void Log(LogLevel level, int32_t number, const char* file, int32_t line, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    LogV(level, number, file, line, format, arguments);
    va_end(arguments);
}

void LogV(LogLevel level, int32_t number, const char* file, int32_t line, const char* format,
          va_list arguments)
{
    const char* text = GetMessageBuffer();
    const int formatted = FormatBoundedV(GetMessageBuffer(), messageBufferSize, format, arguments);
    const uint32_t length = formatted < 0 ? messageBufferSize : static_cast<uint32_t>(formatted);
    switch (level)
    {
    case LogLevel::Debug:
        return currentLogger->Debug(logChannel, text, length, file, line, 0);
    case LogLevel::Success:
        return currentLogger->Success(logChannel, text, length, file, line, 0);
    case LogLevel::Info:
        return currentLogger->Info(logChannel, number, text, length, file, line, 0);
    case LogLevel::Warning:
        return currentLogger->Warning(logChannel, text, length, file, line, 0);
    case LogLevel::Error:
        return currentLogger->Error(logChannel, text, length, file, line, 0);
    case LogLevel::Panic:
        return currentLogger->Panic(logChannel, text, length, file, line, 0);
    }
}
} // namespace Unchecked
} // namespace Torvane
