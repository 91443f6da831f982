#pragma once

/// \file
/// What the doctor can say about a host: a table of sentences. Any thread.

#include <stddef.h>
#include <stdint.h>

namespace Torvane::Doctor
{
enum class Severity : uint8_t
{
    Ok,
    Warning, ///< doesn't prevent a connection
    Problem,
};

/// By their rows in the table.
enum class Finding : uint8_t
{
    HostOk,
    HostNotOpened,
    HostNoProgram,
    HostIsLibrary,
    HostNot32Bit,
    LibraryOk,
    LibraryMissing,
    LibraryElsewhere,
    LibraryNot32Bit,
    BridgeOk,
    BridgeMissing,
    BridgeNot64Bit,
    VersionsEqual,
    VersionsDiffer,
    VersionUnknown,
    ImportsOk,
    ImportMissing,
    ImportMissingMinGW,
    ImportMissingVisualC,
    ImportMissingDebug,
    ImportOfOtherSize,
    LogFolderOk,
    LogFolderMade,
    LogFolderMissing,
    LogFolderNotMade,
    LogFolderUnknown,
    PreferencesRead,
    PreferencesEmpty,
    PreferencesNotRead,
    PreferencesMalformed,
    PreferencesNoObject,
    TimeoutSet,
    TimeoutZero,
    TrialSucceeded,
    TrialFailed,
    TrialFirstMessage,
    TrialVersion,
    TrialNotLoaded,
    TrialNoAnswer,
    TrialEnded,
    TrialNotStarted,
    TrialNotPossible,
    LogMissing,
    LogNotRead,
    LogClean,
    LogLine,
    LogLineHarmless,
    LogLineUnknown,
};

struct FindingText
{
    Finding finding;
    Severity severity;
    const char* text;   ///< with %1 and so on for what a run fills in
    const char* remedy; ///< likewise; empty if there is nothing to do
};

const FindingText& GetText(Finding finding);
} // namespace Torvane::Doctor
