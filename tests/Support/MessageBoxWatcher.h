#pragma once

/// \file
/// Reads and closes a message box of this process; used by the thread that runs the test.

#include "tests/Support/TestThread.h"

#include <string>

namespace Torvane::Testing
{
/// Waits, on a thread of its own, for a message box with the given caption, notes what it looks like, and presses
/// its button. Made before the box is shown.
class MessageBoxWatcher
{
public:
    explicit MessageBoxWatcher(const std::string& caption);

    /// Whether the box was shown within the limit `testTimeout` and was closed.
    bool HasClosedBox();

    // Contents of the box

    std::string text;
    int buttonCount = 0; ///< that can be seen
    bool hasOwner = true;
    bool hasIcon = true;

private:
    void Watch();
    static BOOL CALLBACK NoteControl(HWND control, LPARAM watcher);

    std::string awaitedCaption;
    HWND button = nullptr;
    bool closed = false;
    TestThread thread{[this] {
        Watch();
    }};
};
} // namespace Torvane::Testing
