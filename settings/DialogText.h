// What the add-in's dialogs share: texts set from the user-interface strings when a dialog starts,
// a place in the middle of the screen (the dialogs have no owner window to centre on), and the
// guard that keeps exceptions inside the dialog procedure.
#pragma once

#include <windows.h>

// Sets the text of `control`, or the caption when `control` is 0, to user-interface text `id`;
// leaves the template's text when there is none.
void SetDialogText(HWND dialog, int control, UINT id);

void CenterOverDesktop(HWND dialog);

// The dialog procedure handed to the system: runs `Procedure` and ends the dialog as if
// cancelled (0) when it throws, since no exception may leave a window procedure.
template <INT_PTR (*Procedure)(HWND, UINT, WPARAM, LPARAM)>
INT_PTR CALLBACK GuardedDialogProc(HWND dialog, UINT message, WPARAM wParam,
                                   LPARAM lParam) noexcept {
    try {
        return Procedure(dialog, message, wParam, lParam);
    } catch (...) {
        EndDialog(dialog, 0);
        return TRUE;
    }
}
