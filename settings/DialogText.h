// What the add-in's dialogs share: texts set from the user-interface strings when a dialog starts,
// and a place in the middle of the screen (the dialogs have no owner window to centre on).
#pragma once

#include <windows.h>

// Sets the text of `control`, or the caption when `control` is 0, to user-interface text `id`;
// leaves the template's text when there is none.
void SetDialogText(HWND dialog, int control, UINT id);

void CenterOverDesktop(HWND dialog);
