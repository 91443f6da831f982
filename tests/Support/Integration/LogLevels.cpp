#include "tests/Support/Integration/LogLevels.h"

#include <algorithm>

namespace Torvane::Testing
{
namespace
{
/// All messages of a level; each `*` matches any text.
struct Level
{
    const char* tag;
    std::vector<const char*> messages;
};

const Level levels[] = {
    {"PNC",
     {
         "Cannot create agent bridge mutex for process *",
         "Cannot create agent bridge shared memory for process *",
         "Cannot create event",
         "Cannot create event for connected sender",
         "Cannot create event for connecting named pipe",
         "Cannot create event for exception filter",
         "Cannot create event for heart beat exit",
         "Cannot create event for latch",
         "Cannot create event for restart",
         "Cannot create event for startup",
         "Cannot create event for watchdog enter",
         "Cannot create event for watchdog exit",
         "Cannot create event for watchdog watch",
         "Cannot create heart beat mutex for process *",
         "Cannot create heart beat named shared memory for process *",
         "Cannot create hot-reload event",
         "Cannot create semaphore for FixedSizeQueue",
         "Out of memory",
     }},
    {"ERR",
     {
         "* exception * (0x*) occurred at address 0x*",
         "Call to function * failed. Error: 0x*",
         "Cannot commit * bytes of physical memory.",
         "Cannot ensure * bytes of allocated physical memory",
         "Cannot get handle for module *",
         "Cannot normalize path *",
         "Cannot read from stdout pipe",
         "Cannot reserve * bytes of address space",
         "Cannot reserve * bytes of address space at address 0x*",
         "Cannot signal consumer semaphore in fixed-size queue",
         "Cannot signal producer semaphore in fixed-size queue",
         "Cannot wait for consumer semaphore in fixed-size queue",
         "Cannot wait for producer semaphore in fixed-size queue",
         "Could not decode instruction at address 0x*",
         "Could not load project-specific preferences from file *",
         "Could not wait for event during hot-reload",
         "Could not wait for event during hot-restart",
         "Could not wait for event in exception handler",
         "Could not wait for event in latch",
         "Error: *", // after a message of this level
         "Event timed out",
         "Exception thrown while calling the patch entry point",
         "Failed to Wait() on a mutex",
         "Failed to Wait() on an event",
         "Failed to create agent pipe",
         "Failed to create bridge pipe",
         "Failed to create thread",
         "Failed to find process heap critical section",
         "Failed to load module *",
         "Failed to load patch from *",
         "Failed to open executable *",
         "Failed to open thread *",
         "Failed to parse malformed JSON from *",
         "Failed to receive blob from bridge",
         "Failed to receive blob header from bridge",
         "Failed to send RegisterAgent blob",
         "Failed to send RegisterProcess blob",
         "Failed to send RegisterProjectPreferences blob",
         "Failed to send Version blob",
         "Failed to send blob to bridge",
         "Failed to spawn bridge process",
         "Failed to unload module *",
         "Failed to wait for Startup() to complete",
         "Failed to wait for receiver pipe",
         "Failed to wait for sender connection event",
         "Failed to wait for sender pipe",
         "Information: * 0x*",
         "LoadLibraryW(*) failed.",
         "Mutex timed out",
         "Reason: *",
         "Received unexpected Version blob type",
         "Unknown blob type *",
         "Version mismatch detected: Broker running API version *, expected API version 2.4.0",
         "Wait() was called on a stale event which was not released by the owning thread",
         "Wait() was called on a stale mutex which was not released by the owning thread",
     }},
    {"SCS",
     {
         "Initialization done",
         "Loaded project-specific preferences from file *",
         "Pipes connected",
         "Spawned bridge process",
     }},
    {"INF",
     {
         "Automatically disabling module",
         "Automatically enabling module",
         "Disabling * module(s) with options *",
         "Disabling module *",
         "Disabling module with options *",
         "Enabling * module(s) with options *",
         "Enabling module *",
         "Enabling module with options *",
         "Installing exception handler with order *",
         "Registering agent with bridge",
         "Registering process with bridge",
         "Select an action in the Torvane Broker exception handler dialog to continue execution",
         "Sender thread ready",
         "Spawning bridge process at *",
         "Starting agent-bridge communication using identifier * and agent type *",
         "Waiting for bridge to connect to pipes, timeout *ms",
     }},
    {"DBG",
     {
         "API Tvn*",
         "Cannot create mapped file * with open mode 0x*.",
         "Cannot create named shared memory * with size *.",
         "Cannot map RVA 0x* to executable image file offset",
         "Cannot map view for named shared memory * with size *.",
         "Cannot map view of file * with open mode 0x*.",
         "Cannot open file *.",
         "Cannot spawn process *.",
         "Cannot write to file.",
         "ConnectNamedPipe failed.",
         "Converting page into executable page: address 0x*, old protection 0x*, new protection 0x*",
         "Copying project preferences from blob",
         "CreateEventW(*) failed.",
         "CreateMutexW(*) failed.",
         "CreateNamedPipeW failed.",
         "CreateSemaphoreW(*) failed.",
         "Creating communication pipes",
         "Creating file at *",
         "Creating heartbeat thread",
         "Creating receiver thread",
         "Creating sender thread",
         "Creating synchronization events",
         "Creating watchdog thread",
         "Determining page regions in the address range 0x* with size 0x*",
         "Disabling watchdog thread",
         "Enabling watchdog thread",
         "Error: *", // after a message of this level
         "Exiting heart beat thread",
         "Exiting receiver thread",
         "Exiting sender thread",
         "Exiting watchdog thread",
         "Failed to wait on an semaphore.",
         "Found loader lock at 0x*",
         "Found process heap critical section at 0x*",
         "Image '*' has invalid machine type",
         "Image '*' has invalid number of sections",
         "Image '*' has wrong DOS header signature",
         "Image '*' has wrong NT header signature",
         "Initializing OS internal functions",
         "Initializing hot-reload system",
         "Initializing hot-restart system",
         "Initializing system",
         "Loaded default global preferences from *",
         "Loaded global preferences from *",
         "Loaded overridden global preferences from *",
         "Loading patch from *",
         "Possible hang detected while loading patch code, resuming held threads",
         "Preparing section preceding RVA 0x* for patching",
         "Processing Blob::*",
         "ReadFile() failed.",
         "Received exception handler action *",
         "Region 0x*, size 0x*, protection 0x*, state 0x*",
         "ReleaseSemaphore() failed.",
         "Running heart beat thread",
         "Running receiver thread",
         "Running sender thread",
         "Running watchdog thread",
         "Semaphore timed out.",
         "Shutting down OS internal functions",
         "Shutting down agent-bridge communication",
         "Shutting down default allocators for memory system",
         "Shutting down hot-reload system",
         "Shutting down hot-restart system",
         "Shutting down system",
         "Spawning process (*, *, *, *, *)",
         "Suspending held threads",
         "Thread 'Torvane *' exited with result *",
         "Thread 'Torvane *' started",
         "Torvane version 2.4.0",
         "Trying to load global preferences from *",
         "Trying to load project preferences from *",
         "VirtualProtect() failed: address 0x*, size 0x*, protection 0x*",
         "WaitForSingleObject() was called on a stale semaphore which was not released by the owning thread.",
         "Waiting for loading to finish",
         "WriteFile() failed.",
     }},
};

bool Matches(const char* text, const char* pattern)
{
    if (*pattern == '*')
    {
        return Matches(text, pattern + 1) || (*text != '\0' && Matches(text + 1, pattern));
    }
    return *text == *pattern && (*pattern == '\0' || Matches(text + 1, pattern + 1));
}

bool IsKnown(const LogRecord& record)
{
    return std::any_of(std::begin(levels), std::end(levels), [&](const Level& level) {
        return level.tag == record.tag &&
               std::any_of(level.messages.begin(), level.messages.end(),
                           [&](const char* message) { return Matches(record.message.c_str(), message); });
    });
}
} // namespace

std::vector<std::string> FindUnknownLines(const std::vector<LogRecord>& records)
{
    std::vector<std::string> unknown;
    for (const LogRecord& record : records)
    {
        if (!IsKnown(record))
        {
            unknown.push_back(record.tag + " " + record.message);
        }
    }
    return unknown;
}
} // namespace Torvane::Testing
