#pragma once

/// \file
/// Fields of the Blobs about patches and memory; included by the table of Blobs only.

#include "bridge/Recording/ElementFields.h"

namespace Torvane::Bridge
{
inline constexpr FieldLayout loadPatchWindowsFields[] = {
    TORVANE_FIELD(Bytes, LoadPatchWindowsBlob, unread00),
    TORVANE_FIELD(Utf16String, LoadPatchWindowsBlob, patchPath),
    TORVANE_FIELD(Utf16String, LoadPatchWindowsBlob, secondText),
    TORVANE_FIELD(Bytes, LoadPatchWindowsBlob, unread0C),
    TORVANE_FIELD(Hexadecimal, LoadPatchWindowsBlob, echo38),
    TORVANE_FIELD(Bytes, LoadPatchWindowsBlob, unread40),
    TORVANE_FIELD(RecordList, LoadPatchWindowsBlob, reservations, &pageRangeLayout),
    TORVANE_FIELD(Hexadecimal, LoadPatchWindowsBlob, echo50),
    TORVANE_FIELD(Hexadecimal, LoadPatchWindowsBlob, echo58),
    TORVANE_FIELD(Hexadecimal, LoadPatchWindowsBlob, echo60),
    TORVANE_FIELD(Flag, LoadPatchWindowsBlob, echo68),
    TORVANE_FIELD(Flag, LoadPatchWindowsBlob, watchdog),
    TORVANE_FIELD(Padding, LoadPatchWindowsBlob, padding6A),
};
TORVANE_LAYOUT(loadPatchWindowsLayout, LoadPatchWindowsBlob, loadPatchWindowsFields);

inline constexpr FieldLayout patchLoadedFields[] = {
    TORVANE_FIELD(Utf16String, PatchLoadedBlob, patchPath),
    TORVANE_FIELD(Utf16String, PatchLoadedBlob, secondText),
    TORVANE_FIELD(Hexadecimal, PatchLoadedBlob, echo38),
    TORVANE_FIELD(Address, PatchLoadedBlob, base),
    TORVANE_FIELD(Number, PatchLoadedBlob, imageSize),
    TORVANE_FIELD(Padding, PatchLoadedBlob, padding1C),
    TORVANE_FIELD(Hexadecimal, PatchLoadedBlob, echo50),
    TORVANE_FIELD(Hexadecimal, PatchLoadedBlob, echo58),
    TORVANE_FIELD(Hexadecimal, PatchLoadedBlob, echo60),
    TORVANE_FIELD(RecordList, PatchLoadedBlob, pageRanges, &pageRangeLayout),
    TORVANE_FIELD(RecordList, PatchLoadedBlob, secondPageRanges, &pageRangeLayout),
    TORVANE_FIELD(Flag, PatchLoadedBlob, echo68),
    TORVANE_FIELD(Padding, PatchLoadedBlob, padding49),
};
TORVANE_LAYOUT(patchLoadedLayout, PatchLoadedBlob, patchLoadedFields);

inline constexpr FieldLayout unloadPatchFields[] = {
    TORVANE_FIELD(Address, UnloadPatchBlob, base),
};
TORVANE_LAYOUT(unloadPatchLayout, UnloadPatchBlob, unloadPatchFields);

inline constexpr FieldLayout callHooksFields[] = {
    TORVANE_FIELD(Number, CallHooksBlob, kind),           TORVANE_FIELD(Padding, CallHooksBlob, padding04),
    TORVANE_FIELD(Address, CallHooksBlob, first),         TORVANE_FIELD(Address, CallHooksBlob, end),
    TORVANE_FIELD(AnsiString, CallHooksBlob, firstText),  TORVANE_FIELD(Number, CallHooksBlob, number),
    TORVANE_FIELD(AnsiString, CallHooksBlob, secondText), TORVANE_FIELD(AnsiString, CallHooksBlob, thirdText),
    TORVANE_FIELD(AnsiString, CallHooksBlob, kind7Text),  TORVANE_FIELD(StringList, CallHooksBlob, textList),
    TORVANE_FIELD(Padding, CallHooksBlob, padding34),
};
TORVANE_LAYOUT(callHooksLayout, CallHooksBlob, callHooksFields);

inline constexpr FieldLayout readMemoryFields[] = {
    TORVANE_FIELD(Bytes, ReadMemoryBlob, unread00),
    TORVANE_FIELD(Number, ReadMemoryBlob, elementSize),
    TORVANE_FIELD(Number, ReadMemoryBlob, elementCount),
    TORVANE_FIELD(AddressList, ReadMemoryBlob, addresses, nullptr,
                  {0, {TORVANE_FACTOR(ReadMemoryBlob, elementCount)}}),
    TORVANE_FIELD(Padding, ReadMemoryBlob, padding1C),
    TORVANE_FIELD(Hexadecimal, ReadMemoryBlob, token),
};
TORVANE_LAYOUT(readMemoryLayout, ReadMemoryBlob, readMemoryFields);

inline constexpr FieldLayout readMemoryResultFields[] = {
    TORVANE_FIELD(Number, ReadMemoryResultBlob, totalSize),
    TORVANE_FIELD(Data, ReadMemoryResultBlob, data, nullptr,
                  {0, {TORVANE_FACTOR(ReadMemoryResultBlob, totalSize)}}),
    TORVANE_FIELD(Padding, ReadMemoryResultBlob, padding0C),
    TORVANE_FIELD(Hexadecimal, ReadMemoryResultBlob, token),
};
TORVANE_LAYOUT(readMemoryResultLayout, ReadMemoryResultBlob, readMemoryResultFields);

inline constexpr FieldLayout writeMemoryFields[] = {
    TORVANE_FIELD(Bytes, WriteMemoryBlob, unread00),
    TORVANE_FIELD(Number, WriteMemoryBlob, elementSize),
    TORVANE_FIELD(Number, WriteMemoryBlob, elementCount),
    TORVANE_FIELD(AddressList, WriteMemoryBlob, addresses, nullptr,
                  {0, {TORVANE_FACTOR(WriteMemoryBlob, elementCount)}}),
    TORVANE_FIELD(
        Data, WriteMemoryBlob, data, nullptr,
        {0, {TORVANE_FACTOR(WriteMemoryBlob, elementSize), TORVANE_FACTOR(WriteMemoryBlob, elementCount)}}),
};
TORVANE_LAYOUT(writeMemoryLayout, WriteMemoryBlob, writeMemoryFields);

inline constexpr FieldLayout copyMemoryFields[] = {
    TORVANE_FIELD(Number, CopyMemoryBlob, elementSize),
    TORVANE_FIELD(Bytes, CopyMemoryBlob, unread04),
    TORVANE_FIELD(Number, CopyMemoryBlob, elementCount),
    TORVANE_FIELD(AddressList, CopyMemoryBlob, sources, nullptr,
                  {0, {TORVANE_FACTOR(CopyMemoryBlob, elementCount)}}),
    TORVANE_FIELD(AddressList, CopyMemoryBlob, destinations, nullptr,
                  {0, {TORVANE_FACTOR(CopyMemoryBlob, elementCount)}}),
};
TORVANE_LAYOUT(copyMemoryLayout, CopyMemoryBlob, copyMemoryFields);

inline constexpr FieldLayout setPageProtectionWindowsFields[] = {
    TORVANE_FIELD(RecordList, SetPageProtectionWindowsBlob, ranges, &pageRangeLayout),
};
TORVANE_LAYOUT(setPageProtectionWindowsLayout, SetPageProtectionWindowsBlob, setPageProtectionWindowsFields);

inline constexpr FieldLayout callEntryPointFields[] = {
    TORVANE_FIELD(Address, CallEntryPointBlob, base),
    TORVANE_FIELD(Hexadecimal, CallEntryPointBlob, entryPoint),
    TORVANE_FIELD(Bytes, CallEntryPointBlob, codeAfter),
    TORVANE_FIELD(Bytes, CallEntryPointBlob, codeBefore),
    TORVANE_FIELD(Padding, CallEntryPointBlob, padding1C),
};
TORVANE_LAYOUT(callEntryPointLayout, CallEntryPointBlob, callEntryPointFields);

} // namespace Torvane::Bridge
