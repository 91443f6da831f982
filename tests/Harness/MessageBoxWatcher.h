#pragma once

/// \file
/// Somebody who reads and closes message boxes of this process; made and asked by the thread that runs the test.

#include "tests/Harness/TestThread.h"

#include <string>

namespace Torvane::Testing
{
/// Waits, on a thread of its own, for a message box with the given caption, notes what it looks like, and presses
/// its button. To be made before the box comes up.
class MessageBoxWatcher
{
public:
    explicit MessageBoxWatcher(const std::string& caption);

    /// Whether the box came up within the limit `patience` and was closed.
    bool HasClosedBox();

    // What the box looked like.

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
