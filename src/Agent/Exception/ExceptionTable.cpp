#include "Agent/Exception/ExceptionTable.h"

#include "Agent/Protocol/ExceptionCodes.h"

namespace Torvane
{
bool IsKnownExceptionCode(uint32_t code)
{
    return FindExceptionTexts(code).name != nullptr;
}

const char* GetExceptionName(uint32_t code)
{
    return FindExceptionTexts(code).name;
}

const char* GetExceptionDescription(uint32_t code)
{
    return FindExceptionTexts(code).description;
}

bool IsExceptionContinuable(uint32_t flags)
{
    constexpr uint32_t nonContinuable = 1;
    return flags != nonContinuable;
}

ExceptionDetail GetExceptionDetail(uint32_t code, const EXCEPTION_RECORD& record)
{
    if (record.NumberParameters != 0)
    {
        const char* text = FindAccessText(code, record.ExceptionInformation[0]);
        if (text != nullptr)
        {
            return {text, record.ExceptionInformation[1]};
        }
    }
    return {nullptr, 0};
}
} // namespace Torvane
