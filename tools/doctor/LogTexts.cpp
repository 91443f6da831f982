#include "tools/doctor/LogTexts.h"

#include <string.h>

namespace Torvane::Doctor
{
namespace
{
constexpr Explanation bridgeNotStarted = {
    "The Bridge couldn't be started.",
    "Check that TVN_Agent_Bridge_x64.exe is beside the library and that this user may run it."};
constexpr Explanation bridgeNotConnected = {
    "The Bridge hasn't connected in time, or has ended.",
    "Start the Bridge by itself to see what it says. On a slow machine give \"timeout\" of \"Network\" in "
    "the Broker's preferences more milliseconds."};
constexpr Explanation pipeNotCreated = {
    "A pipe for the Bridge couldn't be created; most likely another process has one of its name.",
    "Start the program again; it then has another process id, and so pipes of other names."};
constexpr Explanation otherVersion = {"The Bridge isn't of the library's version.",
                                      "Take library and Bridge from the same package."};
constexpr Explanation readFailed = {
    "Reading from the Bridge has failed, and the connection is lost.",
    "See whether the Bridge has crashed. There is no second connection: start the program again."};
constexpr Explanation writeFailed = {
    "Writing to the Bridge has failed, and nothing more is sent.",
    "See whether the Bridge has crashed. There is no second connection: start the program again."};
constexpr Explanation unknownBlob = {
    "The Bridge has sent a message that Agents don't accept; its commands aren't executed any more.",
    "Correct your Bridge: docs/protocol.md lists what it may send."};
constexpr Explanation badProjectFile = {
    "The preference file that the program names at its start is missing or isn't JSON.",
    "Correct the file, or the path that the program gives. Without it the default folder of the Broker is "
    "used."};
constexpr Explanation badJson = {"A preference file isn't JSON, and is ignored.",
                                 "Correct it; this program says where, if it is one of the Broker's."};
constexpr Explanation moduleNotLoaded = {
    "A module that the program names isn't loaded.",
    "Name it by its path or file name, after it has been loaded and before it is freed."};
constexpr Explanation moduleNotRead = {
    "A module's file can't be read: if it is the program's own there is no connection, otherwise the module "
    "can't be changed, and a call that enables it waits until the connection ends.",
    "Let this user read the file, and don't move it while the program runs."};
constexpr Explanation patchNotLoaded = {"A patch library couldn't be loaded.",
                                        "Check that it is there, is 32-bit, and that its own imports are "
                                        "found; the line that begins with Error: has the OS's reason."};
constexpr Explanation reason = {"This is the OS's reason for the line before it in the log.",
                                "Act on that line."};
constexpr Explanation entryPointFault = {
    "The entry point of a patch has faulted; the reload continues without it.",
    "Correct what runs when the patch is loaded."};
constexpr Explanation exceptionReport = {
    "The program itself has faulted, and the Bridge is asked what to do.",
    "Correct the program. If no Bridge answers, have the exception handler not installed."};
constexpr Explanation noInstruction = {
    "The instruction that has faulted isn't one, so it can't be skipped.",
    "Choose another action for this exception: the thread has jumped to something that is no code."};
constexpr Explanation outOfMemory = {"The program lacks memory or address space.",
                                     "Leave more of it: the Agent reserves two heaps of 128 MiB, and a "
                                     "program linked with /LARGEADDRESSAWARE has twice the space."};
constexpr Explanation osCallFailed = {"A function of the OS has failed; what it was for doesn't work.",
                                      "Look for what changes the OS's functions in this program, such as a "
                                      "security product, and try without it."};
constexpr Explanation objectNotCreated = {
    "The OS couldn't create an object that the Agent needs; hot reload doesn't work in this process.",
    "Look for a leak of handles in the program, or another process with an object of that name, and start it "
    "again."};
constexpr Explanation waitFailed = {
    "The OS has refused a wait or a signal; what was waited for may never come.",
    "Look for code of the program that closes handles which aren't its own, and start it again."};
constexpr Explanation mutexTakenOver = {
    "A process has ended while it owned an object of the Agent, which has been taken over.",
    "Nothing has to be done, unless that process is your Bridge: then see why it has ended."};
constexpr Explanation threadNotStarted = {
    "A thread of the Agent couldn't be started; what it does isn't done.",
    "Leave address space for stacks; the line that begins with Error: has the OS's reason."};
constexpr Explanation waitNotCancelled = {
    "The wait for the Bridge can't be ended at its time-out.",
    "Start a Bridge, or end the process; the line that begins with Error: has the OS's reason."};
constexpr Explanation lockNotFound = {
    "The lock of the process heap wasn't found, so the Bridge can't avoid suspending its owner.",
    "Nothing has to be done: a load with the watchdog that is stopped by it is released after half a second.",
    true};
constexpr Explanation folderNotResolved = {
    "The Broker's folder couldn't be resolved, and is used as it was given.",
    "Give its path without links, if the Broker's preferences aren't found."};

struct LogText
{
    const char* format; ///< as the Agent has it
    const Explanation& explanation;
};

/// The first row that fits is used.
constexpr LogText texts[] = {
    {"Failed to spawn bridge process", bridgeNotStarted},
    {"Failed to wait for sender pipe", bridgeNotConnected},
    {"Failed to wait for receiver pipe", bridgeNotConnected},
    {"Failed to create agent pipe", pipeNotCreated},
    {"Failed to create bridge pipe", pipeNotCreated},
    {"Received unexpected Version blob type", otherVersion},
    {"Version mismatch detected: Broker running API version %hs, expected API version %hs", otherVersion},
    {"Failed to receive blob header from bridge", readFailed},
    {"Failed to receive blob from bridge", readFailed},
    {"Failed to send blob to bridge", writeFailed},
    {"Failed to send Version blob", writeFailed},
    {"Failed to send RegisterProjectPreferences blob", writeFailed},
    {"Failed to send RegisterAgent blob", writeFailed},
    {"Failed to send RegisterProcess blob", writeFailed},
    {"Unknown blob type %u", unknownBlob},
    {"Could not load project-specific preferences from file %ls", badProjectFile},
    {"Failed to parse malformed JSON from %ls", badJson},
    {"Cannot normalize path %ls", folderNotResolved},
    {"Failed to load module %ls", moduleNotLoaded},
    {"Failed to unload module %ls", moduleNotLoaded},
    {"Failed to open executable %ls", moduleNotRead},
    {"Failed to load patch from %ls", patchNotLoaded},
    {"LoadLibraryW(%ls) failed.", patchNotLoaded},
    {"Error: %u, 0x%X: %hs", reason},
    {"Exception thrown while calling the patch entry point", entryPointFault},
    {"%hs exception %hs (0x%08X) occurred at address 0x%p", exceptionReport},
    {"Reason: %hs", exceptionReport},
    {"Information: %hs 0x%p", exceptionReport},
    {"Could not decode instruction at address 0x%p", noInstruction},
    {"Cannot reserve %zu bytes of address space", outOfMemory},
    {"Cannot reserve %zu bytes of address space at address 0x%p", outOfMemory},
    {"Cannot commit %zu bytes of physical memory.", outOfMemory},
    {"Cannot ensure %zu bytes of allocated physical memory", outOfMemory},
    {"Out of memory", outOfMemory},
    {"Failed to create thread", threadNotStarted},
    {"Failed to open thread %u", waitNotCancelled},
    {"Call to function RtlGetVersion failed. Error: 0x%X", osCallFailed},
    {"Call to function SetThreadDescription failed. Error: 0x%X", osCallFailed},
    {"Call to function NtReadVirtualMemory failed. Error: 0x%X", osCallFailed},
    {"Call to function NtQueryVirtualMemory failed. Error: 0x%X", osCallFailed},
    {"Call to function LdrRegisterDllNotification failed. Error: 0x%X", osCallFailed},
    {"Call to function LdrUnregisterDllNotification failed. Error: 0x%X", osCallFailed},
    {"Call to function NtContinue failed. Error: 0x%X", osCallFailed},
    {"Cannot get handle for module %hs", osCallFailed},
    {"Cannot read from stdout pipe", osCallFailed},
    {"Failed to find process heap critical section", lockNotFound},
    {"Cannot wait for producer semaphore in fixed-size queue", waitFailed},
    {"Cannot signal consumer semaphore in fixed-size queue", waitFailed},
    {"Cannot wait for consumer semaphore in fixed-size queue", waitFailed},
    {"Cannot signal producer semaphore in fixed-size queue", waitFailed},
    {"Could not wait for event in latch", waitFailed},
    {"Could not wait for event in exception handler", waitFailed},
    {"Could not wait for event during hot-reload", waitFailed},
    {"Could not wait for event during hot-restart", waitFailed},
    {"Failed to wait for sender connection event", waitFailed},
    {"Failed to wait for Startup() to complete", waitFailed},
    {"Failed to Wait() on an event", waitFailed},
    {"Failed to Wait() on a mutex", waitFailed},
    {"Event timed out", waitFailed},
    {"Mutex timed out", waitFailed},
    {"Wait() was called on a stale mutex which was not released by the owning thread", mutexTakenOver},
    {"Wait() was called on a stale event which was not released by the owning thread", mutexTakenOver},
    {"Cannot create semaphore for FixedSizeQueue", objectNotCreated},
    {"Cannot create event", objectNotCreated},
    {"Cannot create event for connecting named pipe", objectNotCreated},
    {"Cannot create event for startup", objectNotCreated},
    {"Cannot create event for latch", objectNotCreated},
    {"Cannot create event for connected sender", objectNotCreated},
    {"Cannot create event for heart beat exit", objectNotCreated},
    {"Cannot create event for restart", objectNotCreated},
    {"Cannot create event for watchdog enter", objectNotCreated},
    {"Cannot create event for watchdog exit", objectNotCreated},
    {"Cannot create event for watchdog watch", objectNotCreated},
    {"Cannot create event for exception filter", objectNotCreated},
    {"Cannot create hot-reload event", objectNotCreated},
    {"Cannot create heart beat named shared memory for process %ls", objectNotCreated},
    {"Cannot create heart beat mutex for process %ls", objectNotCreated},
    {"Cannot create agent bridge shared memory for process %ls", objectNotCreated},
    {"Cannot create agent bridge mutex for process %ls", objectNotCreated},
};

/// Skips a conversion such as %08X. \return the character after it.
const char* SkipConversion(const char* format)
{
    return format + strcspn(format, "uXsp") + 1;
}

/// Whether a text can come from a format. A conversion stands for any string.
bool Fits(const char* format, const char* text)
{
    for (; *format != '%'; ++format, ++text)
    {
        if (*format != *text)
        {
            return false;
        }
        if (*format == '\0')
        {
            return true;
        }
    }
    format = SkipConversion(format);
    if (*format == '\0')
    {
        return true;
    }
    for (; *text != '\0'; ++text)
    {
        if (Fits(format, text))
        {
            return true;
        }
    }
    return false;
}
} // namespace

const Explanation* ExplainLogText(const std::string& text)
{
    for (const LogText& known : texts)
    {
        if (Fits(known.format, text.c_str()))
        {
            return &known.explanation;
        }
    }
    return nullptr;
}
} // namespace Torvane::Doctor
