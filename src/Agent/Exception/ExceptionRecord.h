#pragma once

/// \file
/// The OS's `EXCEPTION_RECORD`, from its own header or, where there is none, as published; plain data, any thread.

#ifdef _WIN32

#include <windows.h>

#else

#include <stdint.h>

constexpr uint32_t EXCEPTION_MAXIMUM_PARAMETERS = 15;

/// As documented for the Windows function `RaiseException` and in winnt.h, with words as wide as a pointer.
struct EXCEPTION_RECORD
{
    uint32_t ExceptionCode;
    uint32_t ExceptionFlags;
    EXCEPTION_RECORD* ExceptionRecord;
    void* ExceptionAddress;
    uint32_t NumberParameters;
    uintptr_t ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];
};

#endif
