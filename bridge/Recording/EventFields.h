#pragma once

/// \file
/// Fields of the Blobs of reloads, restarts, exceptions, preferences, latches and echoes; included by the table of Blobs
/// only.

#include "bridge/Recording/ElementFields.h"

namespace Torvane::Bridge
{
/// The decisions about an exception; any other value continues the search as 0 does.
inline constexpr NamedValue actionValues[] = {
    {0, "continue search"}, {1, "no operation"}, {2, "skip instruction"},
    {3, "resume at frame"}, {4, "ignore"},       {0, nullptr},
};

inline constexpr FieldLayout unwrittenFields[] = {
    TORVANE_FIELD(Bytes, UnwrittenBlob, unwritten),
};
TORVANE_LAYOUT(unwrittenLayout, UnwrittenBlob, unwrittenFields);

inline constexpr FieldLayout reloadFields[] = {
    TORVANE_FIELD(Number, ReloadBlob, processId),
};
TORVANE_LAYOUT(reloadLayout, ReloadBlob, reloadFields);

inline constexpr FieldLayout scheduleRestartFields[] = {
    TORVANE_FIELD(Number, ScheduleRestartBlob, processId),
};
TORVANE_LAYOUT(scheduleRestartLayout, ScheduleRestartBlob, scheduleRestartFields);

inline constexpr FieldLayout restartFields[] = {
    TORVANE_FIELD(Address, RestartBlob, event),
    TORVANE_FIELD(Number, RestartBlob, processId),
    TORVANE_FIELD(InlineWideText, RestartBlob, executablePath),
    TORVANE_FIELD(Utf16String, RestartBlob, commandLine),
    TORVANE_FIELD(InlineWideText, RestartBlob, currentDirectory),
    TORVANE_FIELD(Number, RestartBlob, environmentSize),
    TORVANE_FIELD(Data, RestartBlob, environment, nullptr,
                  {0, {TORVANE_FACTOR(RestartBlob, environmentSize)}}),
    TORVANE_FIELD(Padding, RestartBlob, padding1024),
};
TORVANE_LAYOUT(restartLayout, RestartBlob, restartFields);

inline constexpr FieldLayout exitProcessForHotRestartFields[] = {
    TORVANE_FIELD(Address, ExitProcessForHotRestartBlob, event),
};
TORVANE_LAYOUT(exitProcessForHotRestartLayout, ExitProcessForHotRestartBlob, exitProcessForHotRestartFields);

inline constexpr FieldLayout installExceptionHandlerFields[] = {
    TORVANE_FIELD(Number, InstallExceptionHandlerBlob, order),
};
TORVANE_LAYOUT(installExceptionHandlerLayout, InstallExceptionHandlerBlob, installExceptionHandlerFields);

inline constexpr FieldLayout handleExceptionWindowsFields[] = {
    TORVANE_FIELD(Address, HandleExceptionWindowsBlob, event),
    TORVANE_FIELD(Address, HandleExceptionWindowsBlob, action),
    TORVANE_FIELD(Address, HandleExceptionWindowsBlob, resumeRecord),
    TORVANE_FIELD(Number, HandleExceptionWindowsBlob, processId),
    TORVANE_FIELD(Number, HandleExceptionWindowsBlob, threadId),
    TORVANE_FIELD(Data, HandleExceptionWindowsBlob, context, &contextLayout, {sizeof(PublishedContext), {}}),
    TORVANE_FIELD(Data, HandleExceptionWindowsBlob, record, &exceptionRecordLayout,
                  {sizeof(PublishedExceptionRecord), {}}),
    TORVANE_FIELD(Number, HandleExceptionWindowsBlob, zero),
    TORVANE_FIELD(Padding, HandleExceptionWindowsBlob, padding2C),
};
TORVANE_LAYOUT(handleExceptionWindowsLayout, HandleExceptionWindowsBlob, handleExceptionWindowsFields);

inline constexpr FieldLayout handleExceptionWindowsResultFields[] = {
    TORVANE_FIELD(Address, HandleExceptionWindowsResultBlob, event),
    TORVANE_FIELD(Address, HandleExceptionWindowsResultBlob, actionAddress),
    TORVANE_FIELD(Number, HandleExceptionWindowsResultBlob, action, nullptr, {}, actionValues),
    TORVANE_FIELD(Padding, HandleExceptionWindowsResultBlob, padding14),
    TORVANE_FIELD(Address, HandleExceptionWindowsResultBlob, resumeRecordAddress),
    TORVANE_FIELD(Record, HandleExceptionWindowsResultBlob, resumeRecord, &resumeRecordLayout),
};
TORVANE_LAYOUT(handleExceptionWindowsResultLayout, HandleExceptionWindowsResultBlob,
               handleExceptionWindowsResultFields);

inline constexpr FieldLayout setBoolPreferencesFields[] = {
    TORVANE_FIELD(Number, SetBoolPreferencesBlob, preference),
    TORVANE_FIELD(Flag, SetBoolPreferencesBlob, value),
    TORVANE_FIELD(Padding, SetBoolPreferencesBlob, padding05),
};
TORVANE_LAYOUT(setBoolPreferencesLayout, SetBoolPreferencesBlob, setBoolPreferencesFields);

inline constexpr FieldLayout setIntPreferencesFields[] = {
    TORVANE_FIELD(Number, SetIntPreferencesBlob, preference),
    TORVANE_FIELD(SignedNumber, SetIntPreferencesBlob, value),
};
TORVANE_LAYOUT(setIntPreferencesLayout, SetIntPreferencesBlob, setIntPreferencesFields);

inline constexpr FieldLayout setStringPreferencesFields[] = {
    TORVANE_FIELD(Number, SetStringPreferencesBlob, preference),
    TORVANE_FIELD(AnsiString, SetStringPreferencesBlob, value),
};
TORVANE_LAYOUT(setStringPreferencesLayout, SetStringPreferencesBlob, setStringPreferencesFields);

inline constexpr FieldLayout setShortcutPreferencesFields[] = {
    TORVANE_FIELD(Number, SetShortcutPreferencesBlob, preference),
    TORVANE_FIELD(Number, SetShortcutPreferencesBlob, firstArgument),
    TORVANE_FIELD(Number, SetShortcutPreferencesBlob, secondArgument),
};
TORVANE_LAYOUT(setShortcutPreferencesLayout, SetShortcutPreferencesBlob, setShortcutPreferencesFields);

inline constexpr FieldLayout decrementLatchFields[] = {
    TORVANE_FIELD(Address, DecrementLatchBlob, latch),
};
TORVANE_LAYOUT(decrementLatchLayout, DecrementLatchBlob, decrementLatchFields);

inline constexpr FieldLayout echoRequestFields[] = {
    TORVANE_FIELD(Bytes, EchoRequestBlob, unread00),
    TORVANE_FIELD(Hexadecimal, EchoRequestBlob, token),
};
TORVANE_LAYOUT(echoRequestLayout, EchoRequestBlob, echoRequestFields);

inline constexpr FieldLayout echoReplyFields[] = {
    TORVANE_FIELD(Hexadecimal, EchoReplyBlob, token),
};
TORVANE_LAYOUT(echoReplyLayout, EchoReplyBlob, echoReplyFields);

} // namespace Torvane::Bridge
