#pragma once

/// \file
/// Fields of list elements and of the data of exceptions; included by the table of Blobs only.

#include "Agent/Protocol/ExceptionCodes.h"
#include "bridge/Recording/FieldTable.h"

namespace Torvane::Bridge
{
/// `PAGE_...` of the OS.
inline constexpr NamedValue protectionValues[] = {
    {0x01, "no access"},
    {0x02, "read"},
    {0x04, "read, write"},
    {0x08, "copy on write"},
    {0x10, "execute"},
    {0x20, "execute, read"},
    {0x40, "execute, read, write"},
    {0x80, "execute, copy on write"},
    {0, nullptr},
};

inline constexpr FieldLayout pageRangeFields[] = {
    TORVANE_FIELD(Address, WirePageRange, base),
    TORVANE_FIELD(Number, WirePageRange, size),
    TORVANE_FIELD(Number, WirePageRange, protection, nullptr, {}, protectionValues),
    TORVANE_FIELD(Padding, WirePageRange, padding),
};
TORVANE_LAYOUT(pageRangeLayout, WirePageRange, pageRangeFields);

inline constexpr FieldLayout executableFields[] = {
    TORVANE_FIELD(Number, ExecutableIdentity, fileSize),
    TORVANE_FIELD(Bytes, ExecutableIdentity, fileHeader),
    TORVANE_FIELD(Bytes, ExecutableIdentity, optionalHeader),
    TORVANE_FIELD(Number, ExecutableIdentity, zero),
};
TORVANE_LAYOUT(executableLayout, ExecutableIdentity, executableFields);

inline constexpr FieldLayout moduleFields[] = {
    TORVANE_FIELD(InlineWideText, WireModuleIdentity, path),
    TORVANE_FIELD(Padding, WireModuleIdentity, padding804),
    TORVANE_FIELD(Address, WireModuleIdentity, base),
    TORVANE_FIELD(Number, WireModuleIdentity, imageSize),
    TORVANE_FIELD(Padding, WireModuleIdentity, padding814),
};
TORVANE_LAYOUT(moduleLayout, WireModuleIdentity, moduleFields);

inline constexpr FieldLayout resumeRecordFields[] = {
    TORVANE_FIELD(Address, ResumeRecord, instructionPointer),
    TORVANE_FIELD(Address, ResumeRecord, stackPointer),
    TORVANE_FIELD(Address, ResumeRecord, framePointer),
};
TORVANE_LAYOUT(resumeRecordLayout, ResumeRecord, resumeRecordFields);

/// `EXCEPTION_RECORD32` as published by the OS's vendor.
struct PublishedExceptionRecord
{
    uint32_t code;
    uint32_t flags;
    uint32_t next;
    uint32_t address;
    uint32_t informationCount;
    uint32_t information0; ///< of an access violation: 0 a read, 1 a write, 8 an execution
    uint32_t information1; ///< of an access violation: the address
    uint8_t furtherInformation[13 * 4];
};
static_assert(sizeof(PublishedExceptionRecord) == 80);

/// The names of all known codes, and an entry without a name at the end.
struct ExceptionValues
{
    NamedValue values[sizeof(exceptionCodeTable) / sizeof(exceptionCodeTable[0]) + 1];
};

constexpr ExceptionValues MakeExceptionValues()
{
    ExceptionValues made = {};
    size_t count = 0;
    for (const ExceptionRow& row : exceptionCodeTable)
    {
        made.values[count++] = {row.code, row.texts.name};
    }
    return made;
}

inline constexpr ExceptionValues exceptionValues = MakeExceptionValues();

inline constexpr FieldLayout exceptionRecordFields[] = {
    TORVANE_FIELD(Hexadecimal, PublishedExceptionRecord, code, nullptr, {}, exceptionValues.values),
    TORVANE_FIELD(Hexadecimal, PublishedExceptionRecord, flags),
    TORVANE_FIELD(Hexadecimal, PublishedExceptionRecord, next),
    TORVANE_FIELD(Hexadecimal, PublishedExceptionRecord, address),
    TORVANE_FIELD(Number, PublishedExceptionRecord, informationCount),
    TORVANE_FIELD(Hexadecimal, PublishedExceptionRecord, information0),
    TORVANE_FIELD(Hexadecimal, PublishedExceptionRecord, information1),
    TORVANE_FIELD(Bytes, PublishedExceptionRecord, furtherInformation),
};
TORVANE_LAYOUT(exceptionRecordLayout, PublishedExceptionRecord, exceptionRecordFields);

/// `CONTEXT` of a 32-bit thread as published by the OS's vendor.
struct PublishedContext
{
    uint32_t flags;
    uint8_t debugAndFloatingPoint[0x8C - 4];
    uint32_t gs;
    uint32_t fs;
    uint32_t es;
    uint32_t ds;
    uint32_t edi;
    uint32_t esi;
    uint32_t ebx;
    uint32_t edx;
    uint32_t ecx;
    uint32_t eax;
    uint32_t ebp;
    uint32_t eip;
    uint32_t cs;
    uint32_t eflags;
    uint32_t esp;
    uint32_t ss;
    uint8_t extendedRegisters[512];
};
static_assert(sizeof(PublishedContext) == 716);
static_assert(offsetof(PublishedContext, eip) == 0xB8);

inline constexpr FieldLayout contextFields[] = {
    TORVANE_FIELD(Hexadecimal, PublishedContext, flags),
    TORVANE_FIELD(Bytes, PublishedContext, debugAndFloatingPoint),
    TORVANE_FIELD(Hexadecimal, PublishedContext, gs),
    TORVANE_FIELD(Hexadecimal, PublishedContext, fs),
    TORVANE_FIELD(Hexadecimal, PublishedContext, es),
    TORVANE_FIELD(Hexadecimal, PublishedContext, ds),
    TORVANE_FIELD(Hexadecimal, PublishedContext, edi),
    TORVANE_FIELD(Hexadecimal, PublishedContext, esi),
    TORVANE_FIELD(Hexadecimal, PublishedContext, ebx),
    TORVANE_FIELD(Hexadecimal, PublishedContext, edx),
    TORVANE_FIELD(Hexadecimal, PublishedContext, ecx),
    TORVANE_FIELD(Hexadecimal, PublishedContext, eax),
    TORVANE_FIELD(Hexadecimal, PublishedContext, ebp),
    TORVANE_FIELD(Hexadecimal, PublishedContext, eip),
    TORVANE_FIELD(Hexadecimal, PublishedContext, cs),
    TORVANE_FIELD(Hexadecimal, PublishedContext, eflags),
    TORVANE_FIELD(Hexadecimal, PublishedContext, esp),
    TORVANE_FIELD(Hexadecimal, PublishedContext, ss),
    TORVANE_FIELD(Bytes, PublishedContext, extendedRegisters),
};
TORVANE_LAYOUT(contextLayout, PublishedContext, contextFields);
} // namespace Torvane::Bridge
