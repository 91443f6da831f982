#include "bridge/Exceptions.h"

#include "bridge/Commands.h"
#include "bridge/Requests.h"

#include <algorithm>
#include <string.h>
#include <utility>

#include <windows.h>

namespace Torvane::Bridge
{
ReportedException ReadException(const Received<HandleExceptionWindowsBlob>& report)
{
    EXCEPTION_RECORD32 record = {};
    const std::vector<uint8_t> bytes = report.Data(report->record, sizeof(record));
    memcpy(&record, bytes.data(), bytes.size());
    const uint32_t count = std::min<uint32_t>(record.NumberParameters, EXCEPTION_MAXIMUM_PARAMETERS);
    return {report->threadId, record.ExceptionCode, record.ExceptionAddress,
            std::vector<uint32_t>(record.ExceptionInformation, record.ExceptionInformation + count),
            report.Data(report->context, sizeof(WOW64_CONTEXT))};
}

Result<> ServeExceptions(Session& session, HandlerPlace place,
                         std::function<ExceptionDecision(const ReportedException&)> decide,
                         uint32_t milliseconds)
{
    Link& link = session.link;
    link.Serve<HandleExceptionWindowsBlob>(
        [&link, decide = std::move(decide)](const Received<HandleExceptionWindowsBlob>& report) {
            const ExceptionDecision decision = decide(ReadException(report));
            SendHandleExceptionResult(link, *report, decision.action, decision.resumeRecord);
        });
    if (!SendInstallExceptionHandler(link, static_cast<uint32_t>(place)))
    {
        return ClosedPipe();
    }
    return Fence(link, milliseconds);
}
} // namespace Torvane::Bridge
