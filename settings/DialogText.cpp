#include "settings/DialogText.h"

#include "common/Messages.h"

namespace {
constexpr int kTextCapacity = 1024;
}

void SetDialogText(HWND dialog, int control, UINT id) {
    wchar_t text[kTextCapacity];
    if (LoadUiString(id, text, kTextCapacity) > 0) {
        if (control == 0) {
            SetWindowTextW(dialog, text);
        } else {
            SetDlgItemTextW(dialog, control, text);
        }
    }
}

void CenterOverDesktop(HWND dialog) {
    RECT desktop;
    RECT window;
    GetWindowRect(GetDesktopWindow(), &desktop);
    GetWindowRect(dialog, &window);
    int width = window.right - window.left;
    int height = window.bottom - window.top;
    SetWindowPos(dialog, nullptr, desktop.left + (desktop.right - desktop.left - width) / 2,
                 desktop.top + (desktop.bottom - desktop.top - height) / 2, 0, 0,
                 SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}
