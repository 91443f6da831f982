#pragma once

/// \file
/// Puts a function of the test in place of one that the Agent imports from the OS; for the thread that runs the test,
/// while the Agent isn't running.

namespace Torvane::Testing
{
/// Replaces an import of a loaded library, and puts the original back.
class ReplacedImport
{
public:
    /// \param module the library whose import it is; \param name the imported function's; \param function of the same
    /// signature and calling convention. Ends the process with a message if the library has no such import.
    ReplacedImport(void* module, const char* name, void* function);
    ~ReplacedImport();
    ReplacedImport(const ReplacedImport&) = delete;
    ReplacedImport& operator=(const ReplacedImport&) = delete;

private:
    void** slot;
    void* original;
};
} // namespace Torvane::Testing
