#include "tests/Support/MessageBoxWatcher.h"

#include <string.h>

namespace Torvane::Testing
{
namespace
{
constexpr char dialogClass[] = "#32770";

HWND FindBox(const std::string& caption)
{
    HWND box = nullptr;
    while ((box = FindWindowExA(nullptr, box, dialogClass, caption.c_str())) != nullptr)
    {
        DWORD processId = 0;
        GetWindowThreadProcessId(box, &processId);
        if (processId == GetCurrentProcessId() && IsWindowVisible(box))
        {
            return box;
        }
    }
    return nullptr;
}

/// Waits until the box is open, or until it is closed. \return the box, null if it is closed.
HWND WaitForBox(const std::string& caption, bool open)
{
    HWND box = nullptr;
    WaitUntil([&] {
        box = FindBox(caption);
        return (box != nullptr) == open;
    });
    return box;
}
} // namespace

MessageBoxWatcher::MessageBoxWatcher(const std::string& caption)
    : awaitedCaption(caption)
{
}

BOOL CALLBACK MessageBoxWatcher::NoteControl(HWND control, LPARAM watcher)
{
    MessageBoxWatcher& self = *reinterpret_cast<MessageBoxWatcher*>(watcher);
    if (!IsWindowVisible(control))
    {
        return TRUE;
    }
    char className[64] = {};
    GetClassNameA(control, className, sizeof(className));
    if (strcmp(className, "Button") == 0)
    {
        ++self.buttonCount;
        self.button = control;
    }
    else if ((GetWindowLongA(control, GWL_STYLE) & SS_TYPEMASK) == SS_ICON)
    {
        self.hasIcon = self.hasIcon || SendMessageA(control, STM_GETICON, 0, 0) != 0;
    }
    else
    {
        char controlText[1024] = {};
        GetWindowTextA(control, controlText, sizeof(controlText));
        self.text += controlText;
    }
    return TRUE;
}

void MessageBoxWatcher::Watch()
{
    const HWND box = WaitForBox(awaitedCaption, true);
    if (box == nullptr)
    {
        return;
    }
    hasIcon = false;
    hasOwner = GetWindow(box, GW_OWNER) != nullptr;
    EnumChildWindows(box, &NoteControl, reinterpret_cast<LPARAM>(this));
    SendMessageA(button, BM_CLICK, 0, 0);
    closed = WaitForBox(awaitedCaption, false) == nullptr;
}

bool MessageBoxWatcher::HasClosedBox()
{
    return thread.WaitForEnd(2 * testTimeout) && closed;
}
} // namespace Torvane::Testing
