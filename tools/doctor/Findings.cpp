#include "tools/doctor/Findings.h"

#include <iterator>

namespace Torvane::Doctor
{
namespace
{
constexpr FindingText texts[] = {
    {Finding::HostOk, Severity::Ok, "%1 is a 32-bit program.", ""},
    {Finding::HostNotOpened, Severity::Problem, "%1 can't be opened: %2.",
     "Give the path of the program's .exe file."},
    {Finding::HostNoProgram, Severity::Problem, "%1 isn't a Windows program.",
     "Give the path of the program's .exe file."},
    {Finding::HostIsLibrary, Severity::Problem, "%1 is a library.",
     "Give the .exe file of the program that loads it."},
    {Finding::HostNot32Bit, Severity::Problem,
     "%1 is %2: it can't load the Agent, which is for 32-bit (x86) programs.",
     "Build the program for 32 bits: -A Win32 with Visual Studio's generators of CMake, i686-w64-mingw32 "
     "with MinGW."},

    {Finding::LibraryOk, Severity::Ok, "%1 is 32-bit.", ""},
    {Finding::LibraryMissing, Severity::Problem,
     "TVN_Agent_x86.dll isn't beside the program, in %1, and the OS's search finds none either.",
     "Copy it there from the package's folder bin."},
    {Finding::LibraryElsewhere, Severity::Warning,
     "TVN_Agent_x86.dll isn't beside the program; the OS's search finds %1.",
     "Copy it to the program's folder: TvnHostLoad without a path looks nowhere else."},
    {Finding::LibraryNot32Bit, Severity::Problem, "%1 is %2, and has to be a 32-bit (x86) library.",
     "Take TVN_Agent_x86.dll from the package's folder bin."},

    {Finding::BridgeOk, Severity::Ok, "%1 is 64-bit.", ""},
    {Finding::BridgeMissing, Severity::Problem,
     "TVN_Agent_Bridge_x64.exe isn't where the Agent starts it, in %1.",
     "Copy your Bridge there, or the default Bridge from the package's folder bin."},
    {Finding::BridgeNot64Bit, Severity::Problem, "%1 is %2, and has to be a 64-bit (x64) program.",
     "Build your Bridge for 64 bits, or take the default Bridge from the package's folder bin."},

    {Finding::VersionsEqual, Severity::Ok, "Library and Bridge have the version %1.", ""},
    {Finding::VersionsDiffer, Severity::Problem, "The library has the version %1, the Bridge the version %2.",
     "Take both from the same package."},
    {Finding::VersionUnknown, Severity::Warning, "%1 doesn't say which version of Torvane it is for.",
     "Run with --try: the two compare their versions when they connect."},

    {Finding::ImportsOk, Severity::Ok, "All libraries that %1 imports are found.", ""},
    {Finding::ImportMissing, Severity::Problem, "%1 imports %2, which isn't found.", "Copy %2 to %3."},
    {Finding::ImportMissingMinGW, Severity::Problem, "%1 imports %2 of the MinGW runtime, which isn't found.",
     "Link it statically (-static), or copy %2 from the compiler's folder to %3."},
    {Finding::ImportMissingVisualC, Severity::Problem,
     "%1 imports %2 of the Visual C++ runtime, which isn't found.",
     "Link it statically (/MT), or install the Visual C++ Redistributable for the same word size."},
    {Finding::ImportMissingDebug, Severity::Problem,
     "%1 imports %2 of Visual C++'s debug runtime, which isn't found.",
     "Build without the debug runtime (/MD or /MT): it comes with Visual Studio only."},
    {Finding::ImportOfOtherSize, Severity::Problem,
     "%1 imports %2, which is found for another word size only: %3.", "Copy one that fits to %4."},

    {Finding::LogFolderOk, Severity::Ok, "The Agent writes its log to the folder %1.", ""},
    {Finding::LogFolderMade, Severity::Ok, "The folder of the Agent's log has been made: %1.", ""},
    {Finding::LogFolderMissing, Severity::Warning,
     "The folder of the Agent's log isn't there, and the Agent doesn't make it: %1.",
     "Run with --make-log-folder, or make it yourself."},
    {Finding::LogFolderNotMade, Severity::Problem, "The folder of the Agent's log can't be made: %1 (%2).",
     "Make it yourself, as this user."},
    {Finding::LogFolderUnknown, Severity::Warning, "The OS names no folder for local application data.",
     "Check the user's profile: the Agent has no place for its log."},

    {Finding::PreferencesRead, Severity::Ok, "The preferences %1 are read.", ""},
    {Finding::PreferencesEmpty, Severity::Warning, "The preferences %1 are empty; the Agent ignores them.",
     "Write an object into them, or delete them."},
    {Finding::PreferencesNotRead, Severity::Warning,
     "The preferences %1 can't be opened (%2); the Agent ignores them.", "Let this user read them."},
    {Finding::PreferencesMalformed, Severity::Warning,
     "The preferences %1 aren't JSON at line %2, column %3; the Agent ignores them.",
     "Correct them there. Comments and a byte order mark at the start aren't JSON either."},
    {Finding::PreferencesNoObject, Severity::Problem,
     "The root of the preferences %1 isn't an object; the Agent faults when it reads them.",
     "Put what they hold into braces."},
    {Finding::TimeoutSet, Severity::Ok,
     "The Agent waits %1 ms for each of the Bridge's two connections (%2).", ""},
    {Finding::TimeoutZero, Severity::Problem,
     "The time-out in the preferences %1 is %2 ms, which leaves the Bridge no time to connect.",
     "Give the number timeout of the object Network some seconds, for example 2000."},

    {Finding::TrialSucceeded, Severity::Ok, "The trial connection has succeeded, after %1 ms.", ""},
    {Finding::TrialFailed, Severity::Problem,
     "The trial connection has failed, after %1 ms: the Bridge wasn't started, has ended, or hasn't "
     "connected in time.",
     "The lines of the trial's log say which of these. Start the Bridge by itself to see what it says."},
    {Finding::TrialFirstMessage, Severity::Problem,
     "The trial connection has failed, after %1 ms: the Bridge's first message wasn't its version.",
     "Take a Bridge of this version."},
    {Finding::TrialVersion, Severity::Problem,
     "The trial connection has failed, after %1 ms: the Bridge is of another version.",
     "Take library and Bridge from the same package."},
    {Finding::TrialNotLoaded, Severity::Problem, "The library can't be used: %1.",
     "Take library and doctor from the same package."},
    {Finding::TrialNoAnswer, Severity::Problem,
     "The trial connection had no result within %1 ms: most likely the Bridge has connected and doesn't send "
     "its version.",
     "Correct your Bridge: it has to send Version first, without waiting for the Agent's."},
    {Finding::TrialEnded, Severity::Problem, "The trial's process has ended by itself, with 0x%1.",
     "Look at the last lines of the trial's log."},
    {Finding::TrialNotStarted, Severity::Problem, "The trial's process can't be started: %1.",
     "Let this user start programs in the doctor's folder."},
    {Finding::TrialNotPossible, Severity::Warning,
     "There was no trial connection, since the library can't be loaded.", "Correct that first."},

    {Finding::LogMissing, Severity::Ok, "There is no log of an Agent yet.", ""},
    {Finding::LogNotRead, Severity::Warning, "The log %1 can't be opened: %2.", "Let this user read it."},
    {Finding::LogClean, Severity::Ok, "The log %1 has no Error or Panic line.", ""},
    {Finding::LogLine, Severity::Warning, "The log %1 has the line \"%2\": %3", "%4"},
    {Finding::LogLineHarmless, Severity::Ok, "The log %1 has the line \"%2\", which is no fault: %3", "%4"},
    {Finding::LogLineUnknown, Severity::Warning,
     "The log %1 has the line \"%2\", which the doctor doesn't know.",
     "It is of another version than the doctor, or of what is loaded into the program."},
};

constexpr bool AreInOrder()
{
    for (size_t i = 0; i < std::size(texts); ++i)
    {
        if (static_cast<size_t>(texts[i].finding) != i)
        {
            return false;
        }
    }
    return std::size(texts) == static_cast<size_t>(Finding::LogLineUnknown) + 1;
}
static_assert(AreInOrder());
} // namespace

const FindingText& GetText(Finding finding)
{
    return texts[static_cast<size_t>(finding)];
}
} // namespace Torvane::Doctor
