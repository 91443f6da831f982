#pragma once

/// \file
/// Fields of the Blobs of handshake, registration, log and modules; included by the table of Blobs only.

#include "bridge/Recording/ElementFields.h"

namespace Torvane::Bridge
{
inline constexpr NamedValue agentTypeValues[] = {
    {0, "default agent"},
    {1, "synchronized agent"},
    {0, nullptr},
};

inline constexpr NamedValue levelValues[] = {
    {uint32_t(BlobLogLevel::Debug), "Debug"},
    {uint32_t(BlobLogLevel::Success), "Success"},
    {uint32_t(BlobLogLevel::Info), "Info"},
    {uint32_t(BlobLogLevel::Warning), "Warning"},
    {uint32_t(BlobLogLevel::Error), "Error"},
    {uint32_t(BlobLogLevel::Panic), "Panic"},
    {0, nullptr},
};

inline constexpr FieldLayout versionFields[] = {
    TORVANE_FIELD(AnsiString, VersionBlob, version),
};
TORVANE_LAYOUT(versionLayout, VersionBlob, versionFields);

inline constexpr FieldLayout projectPreferencesFields[] = {
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag00),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag01),
    TORVANE_FIELD(Padding, ProjectPreferencesRecord, padding02),
    TORVANE_FIELD(Utf16String, ProjectPreferencesRecord, directoryToBroker),
    TORVANE_FIELD(AnsiString, ProjectPreferencesRecord, text08),
    TORVANE_FIELD(AnsiString, ProjectPreferencesRecord, text0C),
    TORVANE_FIELD(Number, ProjectPreferencesRecord, number10),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag14),
    TORVANE_FIELD(Padding, ProjectPreferencesRecord, padding15),
    TORVANE_FIELD(Utf16String, ProjectPreferencesRecord, wideText18),
    TORVANE_FIELD(Utf16String, ProjectPreferencesRecord, wideText1C),
    TORVANE_FIELD(AnsiString, ProjectPreferencesRecord, text20),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag24),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag25),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag26),
    TORVANE_FIELD(Padding, ProjectPreferencesRecord, padding27),
    TORVANE_FIELD(Utf16String, ProjectPreferencesRecord, wideText28),
    TORVANE_FIELD(AnsiString, ProjectPreferencesRecord, text2C),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag30),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag31),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag32),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag33),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag34),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag35),
    TORVANE_FIELD(Padding, ProjectPreferencesRecord, padding36),
    TORVANE_FIELD(Utf16String, ProjectPreferencesRecord, wideText38),
    TORVANE_FIELD(AnsiString, ProjectPreferencesRecord, text3C),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag40),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag41),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag42),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag43),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag44),
    TORVANE_FIELD(Padding, ProjectPreferencesRecord, padding45),
    TORVANE_FIELD(Number, ProjectPreferencesRecord, number48),
    TORVANE_FIELD(Utf16String, ProjectPreferencesRecord, wideText4C),
    TORVANE_FIELD(Number, ProjectPreferencesRecord, number50),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag54),
    TORVANE_FIELD(Padding, ProjectPreferencesRecord, padding55),
    TORVANE_FIELD(AnsiString, ProjectPreferencesRecord, text58),
    TORVANE_FIELD(Utf16String, ProjectPreferencesRecord, wideText5C),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag60),
    TORVANE_FIELD(Padding, ProjectPreferencesRecord, padding61),
    TORVANE_FIELD(AnsiString, ProjectPreferencesRecord, text64),
    TORVANE_FIELD(Number, ProjectPreferencesRecord, number68),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, flag6C),
    TORVANE_FIELD(Padding, ProjectPreferencesRecord, padding6D),
    TORVANE_FIELD(Utf16String, ProjectPreferencesRecord, projectPreferencesFile),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, fromFile),
    TORVANE_FIELD(Flag, ProjectPreferencesRecord, fromRecord),
    TORVANE_FIELD(Padding, ProjectPreferencesRecord, padding76),
};
TORVANE_LAYOUT(projectPreferencesLayout, ProjectPreferencesRecord, projectPreferencesFields);

inline constexpr FieldLayout registerAgentFields[] = {
    TORVANE_FIELD(Number, RegisterAgentBlob, agentType, nullptr, {}, agentTypeValues),
    TORVANE_FIELD(InlineText, RegisterAgentBlob, empty),
    TORVANE_FIELD(AnsiString, RegisterAgentBlob, osVersion),
};
TORVANE_LAYOUT(registerAgentLayout, RegisterAgentBlob, registerAgentFields);

inline constexpr FieldLayout registerProcessFields[] = {
    TORVANE_FIELD(Record, RegisterProcessBlob, executable, &executableLayout),
    TORVANE_FIELD(Number, RegisterProcessBlob, zero),
    TORVANE_FIELD(Number, RegisterProcessBlob, processId),
    TORVANE_FIELD(Number, RegisterProcessBlob, senderThreadId),
    TORVANE_FIELD(Number, RegisterProcessBlob, receiverThreadId),
    TORVANE_FIELD(Number, RegisterProcessBlob, heartbeatThreadId),
    TORVANE_FIELD(Number, RegisterProcessBlob, watchdogThreadId),
    TORVANE_FIELD(Address, RegisterProcessBlob, spinForever),
    TORVANE_FIELD(Address, RegisterProcessBlob, loaderLock),
    TORVANE_FIELD(Address, RegisterProcessBlob, processHeapLock),
    TORVANE_FIELD(Utf16String, RegisterProcessBlob, executablePath),
    TORVANE_FIELD(Utf16String, RegisterProcessBlob, commandLine),
};
TORVANE_LAYOUT(registerProcessLayout, RegisterProcessBlob, registerProcessFields);

inline constexpr FieldLayout logNarrowFields[] = {
    TORVANE_FIELD(Number, LogBlob, level, nullptr, {}, levelValues),
    TORVANE_FIELD(AnsiString, LogBlob, text),
};
TORVANE_LAYOUT(logNarrowLayout, LogBlob, logNarrowFields);

inline constexpr FieldLayout logWideFields[] = {
    TORVANE_FIELD(Number, LogBlob, level, nullptr, {}, levelValues),
    TORVANE_FIELD(Utf16String, LogBlob, text),
};
TORVANE_LAYOUT(logWideLayout, LogBlob, logWideFields);

inline constexpr FieldLayout enableModulesFields[] = {
    TORVANE_FIELD(RecordList, EnableModulesBlob, modules, &moduleLayout),
    TORVANE_FIELD(RecordList, EnableModulesBlob, executables, &executableLayout),
    TORVANE_FIELD(NumberList, EnableModulesBlob, pageRangeCounts),
    TORVANE_FIELD(RecordList, EnableModulesBlob, pageRanges, &pageRangeLayout),
    TORVANE_FIELD(NumberList, EnableModulesBlob, zeros),
    TORVANE_FIELD(RecordList, EnableModulesBlob, secondPageRanges, &pageRangeLayout),
    TORVANE_FIELD(Address, EnableModulesBlob, latch),
};
TORVANE_LAYOUT(enableModulesLayout, EnableModulesBlob, enableModulesFields);

inline constexpr FieldLayout disableModulesFields[] = {
    TORVANE_FIELD(RecordList, DisableModulesBlob, modules, &moduleLayout),
    TORVANE_FIELD(RecordList, DisableModulesBlob, executables, &executableLayout),
};
TORVANE_LAYOUT(disableModulesLayout, DisableModulesBlob, disableModulesFields);

} // namespace Torvane::Bridge
