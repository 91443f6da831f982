// Benchmark 11, the Bridge's part: answers every question at once, the Agent's and the relay's.
#include "AgentLink.h"

namespace Torvane::Benchmarks
{
namespace
{
std::vector<uint8_t> MakeResult(const HandleExceptionWindowsBlob& exception)
{
    Bridge::BlobWriter<HandleExceptionWindowsResultBlob> blob;
    blob.fixed.event = exception.event;
    blob.fixed.actionAddress = exception.action;
    blob.fixed.action = ActionSkipInstruction;
    blob.fixed.resumeRecordAddress = exception.resumeRecord;
    return blob.Finish();
}
} // namespace

void AnswerExceptions(Session& session)
{
    Bridge::BlobWriter<InstallExceptionHandlerBlob> install;
    install.fixed.order = 1;
    session.agent.Send(install.Finish());
    session.agent.Fence();
    session.relay.Send(RelayCommand::Answer, nullptr, 0);
    for (uint32_t round = 0; round < session.board->rounds; ++round)
    {
        session.agent.ReceiveUntil(BlobType::HandleExceptionWindows);
        session.agent.Send(
            MakeResult(*reinterpret_cast<const HandleExceptionWindowsBlob*>(session.agent.Payload())));
        for (int trip = 0; trip < 2; ++trip)
        {
            session.relay.Receive();
            session.relay.Send(RelayCommand::Answer, nullptr, 0);
        }
    }
}
} // namespace Torvane::Benchmarks
