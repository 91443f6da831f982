#include "Agent/Transport/Windows/LinkRequests.h"

#include "Agent/Protocol/HostAddress.h"
#include "Agent/Transport/Windows/Receiver.h"
#include "Agent/Transport/Windows/Sender.h"

namespace Torvane
{
void DecrementLatch(const DecrementLatchBlob& blob)
{
    Receiver::GetLatches().DecrementByAddress(ToPointer(blob.latch));
}

void AnswerEcho(const EchoRequestBlob& blob)
{
    RecordBuilder<EchoReplyBlob> builder;
    builder.Fixed().token = blob.token;
    PushBlob(builder.Finish());
}

void Synchronize()
{
}
} // namespace Torvane
