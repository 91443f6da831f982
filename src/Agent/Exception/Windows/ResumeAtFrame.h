#pragma once

/// \file
/// Resumes a thread that is in an exception handler at a frame further out on its stack; that thread only.

#include "Agent/Protocol/Blob.h"

#include <windows.h>

namespace Torvane
{
/// Unwinds the top-most structured exception frame of this thread, and that one alone: its handler is called and it is
/// unregistered. Then continues where `target` says, with all other registers as they were at the fault;
/// of each of its words the low half counts. The thread must have a structured exception frame.
/// \param lastError what the thread finds as its last error where it continues
/// \return only if the thread could not be continued, after the Error line "Call to function NtContinue failed.
/// Error: 0x%X".
void ResumeAtFrame(EXCEPTION_POINTERS& exception, const ResumeRecord& target, DWORD lastError);
} // namespace Torvane
