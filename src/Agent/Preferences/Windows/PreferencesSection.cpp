#include "Agent/Preferences/Windows/PreferencesSection.h"

#include "Agent/Protocol/Names.h"
#include "Shared/Concurrency/Windows/InterprocessMutex.h"
#include "Shared/Filesystem/Windows/NamedSharedMemory.h"
#include "Shared/Foundation/Logger.h"

#include <string.h>

namespace Torvane::PreferencesSection
{
namespace
{
NamedSharedMemory memory = {};
InterprocessMutex mutex = {INVALID_HANDLE_VALUE};
} // namespace

void Open(const FixedWideString& identifier)
{
    FixedWideString name = {};
    name.Assign(agentBridgeSectionPrefix);
    name.Append(identifier.text);
    memory = ExpectOr({}, CreateNamedSharedMemory(name.text, agentBridgeSectionSize),
                      "Cannot create agent bridge shared memory for process %ls", identifier.text);
    name.Assign(agentBridgeMutexPrefix);
    name.Append(identifier.text);
    mutex.handle = ExpectOr(INVALID_HANDLE_VALUE, InterprocessMutex::Create(name.text),
                            "Cannot create agent bridge mutex for process %ls", identifier.text);
}

void Close()
{
    mutex.Destroy();
    CloseNamedSharedMemory(memory);
}

void Publish(const BlobHeader& blob)
{
    if (memory.view == nullptr || !mutex.Exists())
    {
        return;
    }
    const uint32_t size = blob.size + static_cast<uint32_t>(sizeof(BlobHeader));
    const ScopedInterprocessLock lock(mutex);
    memcpy(memory.view, &size, sizeof(size));
    memcpy(memory.view + sizeof(size), &blob + 1, size);
}
} // namespace Torvane::PreferencesSection
