#include "Shared/Foundation/Windows/CompositeLogger.h"

#include "Shared/Foundation/Windows/DebugOutputSink.h"
#include "Shared/Foundation/Windows/Debugger.h"
#include "Shared/Foundation/Windows/FileSink.h"

namespace Torvane
{
void CompositeLogger::Debug(const char* channel, const char* text, uint32_t length, const char* file,
                            int32_t line, uint32_t separateText)
{
    fileSink->Debug(channel, text, length, file, line, separateText);
    debugOutputSink->Debug(channel, text, length, file, line, separateText);
}

void CompositeLogger::Success(const char* channel, const char* text, uint32_t length, const char* file,
                              int32_t line, uint32_t separateText)
{
    fileSink->Success(channel, text, length, file, line, separateText);
    debugOutputSink->Success(channel, text, length, file, line, separateText);
}

void CompositeLogger::Info(const char* channel, int32_t number, const char* text, uint32_t length,
                           const char* file, int32_t line, uint32_t separateText)
{
    fileSink->Info(channel, number, text, length, file, line, separateText);
    debugOutputSink->Info(channel, number, text, length, file, line, separateText);
}

void CompositeLogger::Warning(const char* channel, const char* text, uint32_t length, const char* file,
                              int32_t line, uint32_t separateText)
{
    fileSink->Warning(channel, text, length, file, line, separateText);
    debugOutputSink->Warning(channel, text, length, file, line, separateText);
}

void CompositeLogger::Error(const char* channel, const char* text, uint32_t length, const char* file,
                            int32_t line, uint32_t separateText)
{
    fileSink->Error(channel, text, length, file, line, separateText);
    debugOutputSink->Error(channel, text, length, file, line, separateText);
}

void CompositeLogger::Panic(const char* channel, const char* text, uint32_t length, const char* file,
                            int32_t line, uint32_t separateText)
{
    fileSink->Panic(channel, text, length, file, line, separateText);
    BreakIntoDebugger();
    debugOutputSink->Panic(channel, text, length, file, line, separateText);
    BreakIntoDebugger();
}

void CompositeLogger::Reserved()
{
}
} // namespace Torvane
